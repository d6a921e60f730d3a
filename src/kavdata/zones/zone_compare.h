#pragma once

#include <cstddef>
#include <cstdint>

#include "kavdata/zones/local_time.h"
#include "kavdata/zones/zone_file.h"

namespace kav {

// How two zones' local times part in a window, as `zdump -v` over it shows.
struct kav_zone_difference {
  bool differs = false;   // local time differs at some instant of the window
  std::int64_t first = 0;  // the first such instant
  kav_local_time old_before, old_after;  // the old zone's local time a second before `first`, and at it
  kav_local_time new_before, new_after;  // the new zone's
  // The instants of the window at which one zone changes local time and the
  // other does not, or changes it otherwise (from or to another local time).
  std::size_t changes = 0;
};

// Compares `old_zone` with `new_zone` over [from, until).
kav_zone_difference compare_zones(const kav_zone& old_zone, const kav_zone& new_zone,
                                  std::int64_t from, std::int64_t until);

}  // namespace kav
