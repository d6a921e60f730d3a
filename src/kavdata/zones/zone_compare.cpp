#include "kavdata/zones/zone_compare.h"

#include <vector>

#include "kavdata/zones/zone_time.h"

namespace kav {

kav_zone_difference compare_zones(const kav_zone& old_zone, const kav_zone& new_zone,
                                  std::int64_t from, std::int64_t until) {
  kav_zone_difference difference;
  if (until <= from) return difference;
  const std::vector<kav_change> olds = changes_between(old_zone, from, until);
  const std::vector<kav_change> news = changes_between(new_zone, from, until);
  kav_local_time old_time = local_time_at(old_zone, from);
  kav_local_time new_time = local_time_at(new_zone, from);
  if (old_time != new_time)
    difference = {true, from, local_time_at(old_zone, from - 1), old_time,
                  local_time_at(new_zone, from - 1), new_time, 0};
  // Both lists are in order: walk them together, one instant at a time.
  std::size_t o = 0, n = 0;
  while (o < olds.size() || n < news.size()) {
    const bool old_first = n == news.size() || (o < olds.size() && olds[o].instant <= news[n].instant);
    const std::int64_t instant = old_first ? olds[o].instant : news[n].instant;
    const kav_change* old_change = o < olds.size() && olds[o].instant == instant ? &olds[o++] : nullptr;
    const kav_change* new_change = n < news.size() && news[n].instant == instant ? &news[n++] : nullptr;
    if (!old_change || !new_change || *old_change != *new_change) ++difference.changes;
    const kav_local_time old_before = old_time, new_before = new_time;
    if (old_change) old_time = old_change->after;
    if (new_change) new_time = new_change->after;
    if (!difference.differs && old_time != new_time)
      difference = {true, instant, old_before, old_time, new_before, new_time, difference.changes};
  }
  return difference;
}

}  // namespace kav
