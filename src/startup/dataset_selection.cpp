#include "startup/dataset_selection.h"

#include <err.h>
#include <string>

#include "dataset/dataset_links.h"
#include "dataset/dataset_rules.h"
#include "dataset/kav_dataset.h"
#include "fs/file_ops.h"
#include "startup/version_diff_record.h"

namespace kav {
namespace {

// The root the zoneinfo link names; a link that cannot be understood is reset
// to the system partition, which is then the data in use.
std::string read_current_root() {
  try {
    return read_current_link();
  } catch (...) {
    warn("Invalid current symlinks; resetting to system partition");
    reset_to_system();
    return {};
  }
}

// Moves the links to the download at `latest` when it suits the system and is
// newer than what the links named at start.
void switch_to_latest(const std::string& latest, const kav_dataset& system,
                      const kav_dataset& current, const kav_dataset& in_use) {
  const kav_dataset update(latest);
  if (judge_download(update, system, current) != kav_download_verdict::taken) {
    warn("New update not compatible or older version");
    return;
  }
  update.install_links();
  // A download went out of use: let the clean-up job reclaim it.
  if (!(in_use == system)) touch_file();
  write_version_diff_record(in_use, update);
}

void select_between_datasets() {
  const kav_dataset system;
  const std::string latest = read_latest_link();
  const kav_dataset current(read_current_root());

  const kav_dataset* in_use = &current;
  if (judge_in_use(current, system) != kav_in_use_verdict::kept) {
    warn("Symlink points at data incompatible with installed system");
    reset_to_system();
    touch_file();
    in_use = &system;
  }

  if (!latest.empty()) switch_to_latest(latest, system, current, *in_use);
}

}  // namespace

void select_dataset() {
  try {
    select_between_datasets();
  } catch (...) {
    warn("Unable to locate data; resetting to system partition");
    reset_to_system();
  }
}

}  // namespace kav
