#include "kavdata/zones/local_time.h"

#include <cstdio>
#include <cstdlib>

namespace kav {

std::string local_time_words(const kav_local_time& time) {
  const long magnitude = std::labs(static_cast<long>(time.offset));
  char offset[32];
  if (magnitude % 60 == 0)
    std::snprintf(offset, sizeof offset, "%c%02ld:%02ld", time.offset < 0 ? '-' : '+',
                  magnitude / 3600, magnitude / 60 % 60);
  else
    std::snprintf(offset, sizeof offset, "%c%02ld:%02ld:%02ld", time.offset < 0 ? '-' : '+',
                  magnitude / 3600, magnitude / 60 % 60, magnitude % 60);
  return offset + (" " + time.abbreviation) + (time.dst ? " DST" : "");
}

}  // namespace kav
