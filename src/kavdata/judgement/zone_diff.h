#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kavdata/judgement/zone_tree.h"
#include "kavdata/zones/zone_compare.h"

// How the zone names of two data sets differ over a window.
namespace kav {

struct kav_name_difference {
  enum kav_kind { added, removed, same_kind, linked, unlinked, relinked };
  std::string name;
  kav_kind kind = same_kind;  // what became of the name itself
  std::string old_link, new_link;  // what it links to on each side, if anything
  kav_zone_difference time;        // how its local time differs, where both have it
};

// Every name of `old_tree` or `new_tree` (only those of `only`, when given)
// that differs in [from, until), in name order: added, removed, linked
// otherwise, or changing local time otherwise. `total` is the count of
// names compared.
std::vector<kav_name_difference> compare_zone_trees(const kav_zone_tree& old_tree,
                                                    const kav_zone_tree& new_tree,
                                                    std::int64_t from, std::int64_t until,
                                                    const std::vector<std::string>& only,
                                                    std::size_t& total);

// One line for a difference, each side named by its label: "America/Nuuk:
// from 2026-03-28 01:00:00 UTC, 2025b: -02:00 -02 to -01:00 -01 DST, 2026f:
// -02:00 -02 to -02:00 -02; 9 changes differ".
std::string difference_words(const kav_name_difference& difference,
                             const std::string& old_label, const std::string& new_label);

// How local time differs from `time.first` on, for a person who knows the
// zone: "from 2026-03-28 01:00:00 UTC: -01:00 -01 DST, not -02:00 -02", or
// "at once: ..." when it differs at the window's start; unescaped.
std::string time_change_words(const kav_zone_difference& time, std::int64_t from);

}  // namespace kav
