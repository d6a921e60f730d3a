#include "kavdata/judgement/zone_diff.h"

#include <algorithm>
#include <set>

#include "kavdata/walks/words.h"
#include "kavdata/zones/calendar.h"

namespace kav {
namespace {

kav_name_difference::kav_kind link_change(const kav_zone_name& old_name,
                                           const kav_zone_name& new_name) {
  if (old_name.link == new_name.link) return kav_name_difference::same_kind;
  if (old_name.link.empty()) return kav_name_difference::linked;
  if (new_name.link.empty()) return kav_name_difference::unlinked;
  return kav_name_difference::relinked;
}

std::string shown(const kav_local_time& time) { return escaped(local_time_words(time)); }

}  // namespace

std::vector<kav_name_difference> compare_zone_trees(const kav_zone_tree& old_tree,
                                                    const kav_zone_tree& new_tree,
                                                    std::int64_t from, std::int64_t until,
                                                    const std::vector<std::string>& only,
                                                    std::size_t& total) {
  std::set<std::string> names(only.begin(), only.end());
  if (only.empty())
    for (const kav_zone_tree* tree : {&old_tree, &new_tree})
      for (const auto& entry : tree->names) names.insert(entry.first);
  total = names.size();
  std::vector<kav_name_difference> differences;
  for (const std::string& name : names) {
    const auto old_name = old_tree.names.find(name), new_name = new_tree.names.find(name);
    const bool in_old = old_name != old_tree.names.end(), in_new = new_name != new_tree.names.end();
    kav_name_difference difference;
    difference.name = name;
    if (!in_old || !in_new) {
      if (in_old == in_new) continue;
      difference.kind = in_new ? kav_name_difference::added : kav_name_difference::removed;
      differences.push_back(difference);
      continue;
    }
    difference.kind = link_change(old_name->second, new_name->second);
    difference.old_link = old_name->second.link;
    difference.new_link = new_name->second.link;
    difference.time = compare_zones(old_name->second.zone, new_name->second.zone, from, until);
    if (difference.kind != kav_name_difference::same_kind || difference.time.differs)
      differences.push_back(difference);
  }
  return differences;
}

std::string difference_words(const kav_name_difference& difference,
                             const std::string& old_label, const std::string& new_label) {
  std::string line = escaped(difference.name) + ": ";
  switch (difference.kind) {
    case kav_name_difference::added: return line + "added";
    case kav_name_difference::removed: return line + "removed";
    case kav_name_difference::linked:
      line += "became a link to " + escaped(difference.new_link);
      break;
    case kav_name_difference::unlinked:
      line += "stopped being a link to " + escaped(difference.old_link);
      break;
    case kav_name_difference::relinked:
      line += "links to " + escaped(difference.new_link) + ", not " + escaped(difference.old_link);
      break;
    case kav_name_difference::same_kind:
      break;
  }
  const kav_zone_difference& time = difference.time;
  if (!time.differs) return line;
  if (difference.kind != kav_name_difference::same_kind) line += "; ";
  return line + "from " + instant_words(time.first) + ", " + old_label + ": " +
         shown(time.old_before) + " to " + shown(time.old_after) + ", " + new_label + ": " +
         shown(time.new_before) + " to " + shown(time.new_after) + "; " +
         std::to_string(time.changes) + (time.changes == 1 ? " change differs" : " changes differ");
}

std::string time_change_words(const kav_zone_difference& time, std::int64_t from) {
  return (time.first == from ? std::string("at once") : "from " + instant_words(time.first)) +
         ": " + local_time_words(time.new_after) + ", not " + local_time_words(time.old_after);
}

}  // namespace kav
