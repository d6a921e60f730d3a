#include "kavdata/zones/zone_time.h"

#include <algorithm>
#include <climits>

#include "kavdata/zones/calendar.h"

namespace kav {
namespace {

// Whether the C library can break `instant` down into a date: its year less
// 1900 must fit an int.
bool countable(std::int64_t instant) {
  const std::int64_t year = year_of(instant);
  return year - 1900 >= INT_MIN && year - 1900 <= INT_MAX;
}

}  // namespace

kav_local_time local_time_at(const kav_zone& zone, std::int64_t instant) {
  const std::vector<std::int64_t>& times = zone.transitions;
  if (times.empty() || instant < times.front()) return zone.types[zone.initial_type];
  if (instant >= times.back() && zone.has_footer && countable(instant))
    return rule_local_time(zone.footer, instant);
  const std::size_t passed = std::upper_bound(times.begin(), times.end(), instant) - times.begin();
  return zone.types[zone.transition_types[passed - 1]];
}

std::vector<kav_change> changes_between(const kav_zone& zone, std::int64_t from,
                                        std::int64_t until) {
  // Every instant at which local time may change: the transitions, and
  // after the last of them the footer's changes and each year's start.
  std::vector<std::int64_t> candidates(
      std::upper_bound(zone.transitions.begin(), zone.transitions.end(), from),
      std::lower_bound(zone.transitions.begin(), zone.transitions.end(), until));
  if (zone.has_footer && !zone.transitions.empty() && until > from) {
    const std::int64_t footer_from = std::max(from, zone.transitions.back());
    for (std::int64_t year = year_of(footer_from); footer_from < until && year <= year_of(until - 1);
         ++year)
      rule_change_candidates(zone.footer, year, candidates);
  }
  std::sort(candidates.begin(), candidates.end());
  candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
  std::vector<kav_change> changes;
  kav_local_time current = local_time_at(zone, from);
  for (const std::int64_t instant : candidates) {
    if (instant <= from || instant >= until) continue;
    kav_local_time next = local_time_at(zone, instant);
    if (next == current) continue;
    changes.push_back({instant, current, next});
    current = std::move(next);
  }
  return changes;
}

}  // namespace kav
