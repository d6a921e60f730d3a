#pragma once

#include <string>
#include <vector>

#include "kavdata/writers/lock.h"
#include "kavdata/writers/places.h"

namespace kav {

// A command that changes the data sets, begun: root and
// /var/db/timezone/tz/ checked, the lock held, both directories open, and
// what interrupted commands left settled, so that no step of the command
// meets a leftover.
struct kav_change {
  kav_lock lock;
  kav_places places;
  std::vector<kav_leftover> leftovers;  // what the settling deleted or could not
};

// The first step of stage, latest and clean. Throws kav_failure when the
// command cannot begin; a leftover that cannot be deleted is only listed.
kav_change begin_change();

}  // namespace kav
