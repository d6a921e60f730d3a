#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kavdata/device/device.h"

namespace kav {

// What names a data set: the zoneinfo link, /var/db/icutz, tz_latest.
enum class kav_data_set_role { in_use, icu, latest };

// One entry directly under /var/db/timezone/tz/.
struct kav_data_set_dir {
  std::string name;
  bool directory = false;
  std::uint64_t size = 0;  // the bytes of the files in it
  int error = 0;           // the first errno met while measuring it
  std::vector<kav_data_set_role> roles;  // none for a data set out of use
};

// The entries under /var/db/timezone/tz/, by name; `error` is the errno when
// the directory cannot be listed.
std::vector<kav_data_set_dir> list_data_sets(const kav_device& device, int& error);

// What names `dir`, or that nothing does: "in-use,latest" for scripts, or
// "in use, named by tz_latest" `in_words`.
std::string roles_text(const kav_data_set_dir& dir, bool in_words);

}  // namespace kav
