#pragma once

#include "fs/unique_fd.h"

namespace kav {

// While it lives, holds /var/db/timezone/kavdata.lock with flock(2), so that
// no two commands that write run at once. When another holds it, says on
// standard error who does, then waits. Throws kav_failure when the lock file
// cannot be opened.
class kav_lock {
 public:
  kav_lock();

 private:
  unique_fd fd_;
};

// Checks what a command that changes the data sets needs, root and the
// directory /var/db/timezone/tz/, then takes the lock. Throws kav_failure.
kav_lock lock_for_change();

}  // namespace kav
