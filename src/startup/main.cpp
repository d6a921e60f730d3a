// kavsetup: run once at every boot to settle which time zone data the device
// uses. Exits 0; exits 1 only when a step that nothing guards fails, leaving
// the device without working time zone links.
#include <cstdio>

#include "fs/file_ops.h"
#include "startup/dataset_selection.h"
#include "startup/localtime_link.h"
#include "startup/unguarded_step.h"

namespace {

void prepare_run() {
  // Give the working directories their data-protection class.
  kav::prepare_directories();
  // Start without the last run's clean-up marker and the former ICU location.
  std::remove(kav::paths::needs_cleanup);
  std::remove(kav::paths::old_icu);
}

}  // namespace

int main() {
  using kav::completes;
  if (!completes(prepare_run, "Unable to prepare time zone directories; exiting"))
    return 1;
  // Choose the data set and point the links at it; on any failure the links
  // go back to the system partition.
  if (!completes(kav::select_dataset, "Unable to reset to system partition; exiting"))
    return 1;
  // Point the local time link into the data now in use.
  if (!completes(kav::check_localtime_link, "Unable to reset localtime link; exiting"))
    return 1;
  return 0;
}
