#pragma once

#include <cstdint>
#include <string>

namespace kav {

// Local time as a zone gives it at an instant: what a clock shows, less the
// instant itself.
struct kav_local_time {
  std::int32_t offset = 0;   // seconds east of UTC
  bool dst = false;          // daylight saving time
  std::string abbreviation;  // "CET", "-03"

  bool operator==(const kav_local_time& other) const {
    return offset == other.offset && dst == other.dst && abbreviation == other.abbreviation;
  }
  bool operator!=(const kav_local_time& other) const { return !(*this == other); }
};

// `time` as "+01:00 CET" or "+02:00 CEST DST", seconds added to an offset
// that has some; the abbreviation as the zone file has it, to be escaped.
std::string local_time_words(const kav_local_time& time);

}  // namespace kav
