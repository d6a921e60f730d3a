#pragma once

#include <cstdint>
#include <string>

#include "kavdata/device/device.h"
#include "kavdata/device/next_start.h"

namespace kav {

// What the next start's switch to another data set does to the local
// zone's time in the ten years from `now`.
struct kav_zone_change {
  bool switches = false;  // it switches, and both data sets have the local zone
  std::string zone;       // the local zone
  std::string to;         // the data set it switches to, in words
  bool differs = false;   // local time differs somewhere in those years
  std::string words;      // then how, unescaped: "from 2026-11-01 09:00:00 UTC: -07:00
                          // MST, not -08:00 PST", or "at once: ..."
};

kav_zone_change local_zone_change(const kav_device& device, const kav_next_start& next,
                                  std::int64_t now);

}  // namespace kav
