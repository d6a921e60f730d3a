#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kavdata/device.h"

namespace kav {

// One entry directly under /var/db/timezone/tz/.
struct kav_data_set_dir {
  std::string name;
  bool directory = false;
  std::uint64_t size = 0;  // the bytes of the files in it
  int error = 0;           // the first errno met while measuring it
  // What names it: "in-use" (the zoneinfo link), "icu" (/var/db/icutz),
  // "latest" (tz_latest); none for a data set out of use.
  std::vector<std::string> roles;
};

// The entries under /var/db/timezone/tz/, by name; `error` is the errno when
// the directory cannot be listed.
std::vector<kav_data_set_dir> list_data_sets(const kav_device& device, int& error);

}  // namespace kav
