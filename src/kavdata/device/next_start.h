#pragma once

#include <string>
#include <vector>

#include "kavdata/device/device.h"

namespace kav {

// What the next start of the boot program will do, and what it leaves.
// Exact wherever the start can write every path it writes; otherwise
// `obstacle` names the first path it cannot, and the rest is a best guess.
struct kav_next_start {
  // What it does with the data set links, and why, in order.
  std::vector<std::string> steps;
  // What it does with the local time link, and why.
  std::vector<std::string> localtime_steps;
  // The paths it writes, as it leaves them.
  kav_entry zoneinfo, icutz, localtime, marker, record;
  bool record_written = false;
  int exit_status = 0;
  bool refuses = false;  // it refuses the data set in use
  bool resets = false;   // it resets the data set links or the local time link
  // Whether the local time link then leads to a zone file, and where.
  bool local_zone_exists = false;
  std::string local_zone_path;
  std::string obstacle;
  // Why the start stops being foreseeable at `obstacle` when it is a file it
  // reads (a FIFO, a word past the bound), in words that follow the path;
  // empty when it is a path it cannot write.
  std::string obstacle_words;
  // Why the start does not take the download tz_latest names, when it
  // names one; empty when it takes it.
  std::string download_refusal;
  bool download_incompatible = false;

  // Whether the start refuses or resets something, or leaves the device on
  // UTC: what `status` and `show` report with exit status 1.
  bool troubled() const { return refuses || resets || !local_zone_exists || exit_status != 0; }
};

kav_next_start predict_next_start(const kav_device& device);

// The zone a local time link target names: the part after the zoneinfo
// link's "/", or the whole target when it does not lead through that link.
std::string zone_name(const std::string& target);

// Whether `path` exists once the zoneinfo link is `zoneinfo`: a path under
// the link is looked up under the link's target.
bool exists_under(const kav_entry& zoneinfo, const std::string& path);

}  // namespace kav
