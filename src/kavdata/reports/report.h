#pragma once

#include <string>
#include <vector>

#include "kavdata/archives/signature.h"
#include "kavdata/device/data_sets.h"
#include "kavdata/device/device.h"
#include "kavdata/device/next_start.h"
#include "kavdata/reports/zone_change.h"

namespace kav {

// Everything `status` and `show` say, gathered once.
struct kav_report {
  kav_device device;
  kav_next_start next;
  std::vector<kav_data_set_dir> data_sets;
  int data_sets_error = 0;
  kav_keys keys;  // whose signatures stage requires
  kav_zone_change zone_change;  // what the next start's switch does to the local zone
};

// Reads the device and plays its next start, muting the warnings of the
// boot program's code.
kav_report gather_report();

// The report for a person, and as NAME=VALUE properties for scripts.
void print_status(const kav_report& report);
void print_properties(const kav_report& report);

}  // namespace kav
