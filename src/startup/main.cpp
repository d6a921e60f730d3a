// kavsetup: run once at every boot to settle which time zone data the device
// uses. Exits 0; exits 1 only when a step that nothing guards fails, leaving
// the device without working time zone links.
#include "fs/file_ops.h"
#include "startup/localtime_link.h"
#include "startup/unguarded_step.h"

int main() {
  using kav::completes;
  // Give the working directories their data-protection class.
  if (!completes(kav::prepare_directories,
                 "Unable to prepare time zone directories; exiting"))
    return 1;
  // Point the local time link into the data now in use.
  if (!completes(kav::check_localtime_link,
                 "Unable to reset localtime link; exiting"))
    return 1;
  return 0;
}
