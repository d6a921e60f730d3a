#pragma once

#include <cstdint>
#include <vector>

#include "kavdata/zones/local_time.h"
#include "kavdata/zones/zone_file.h"

// What a zone's clock shows, as the C library's localtime_r computes it.
namespace kav {

// Local time in `zone` at `instant`: before the first transition, or with
// none, the zone's initial type; from the last on, its footer where it has
// one (unless the instant's year is beyond what the C library counts), else
// the last transition's type; in between, the type of the transition last
// passed.
kav_local_time local_time_at(const kav_zone& zone, std::int64_t instant);

// A change of local time: at `instant` it turns from `before` to `after`.
// Transitions that leave local time as it was are none.
struct kav_change {
  std::int64_t instant = 0;
  kav_local_time before;
  kav_local_time after;

  bool operator==(const kav_change& other) const {
    return instant == other.instant && before == other.before && after == other.after;
  }
  bool operator!=(const kav_change& other) const { return !(*this == other); }
};

// Every change in (from, until), in order: one at `from` itself is in the
// local time at `from`. The cost grows with the years the window spans after
// the last transition.
std::vector<kav_change> changes_between(const kav_zone& zone, std::int64_t from,
                                        std::int64_t until);

}  // namespace kav
