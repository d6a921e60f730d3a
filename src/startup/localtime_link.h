#pragma once

namespace kav {

// Keeps the local time link when it points under the zoneinfo link, rewrites a
// link into the older /usr/share/zoneinfo location when the zone exists in the
// data now in use, and otherwise resets it to America/Los_Angeles. Throws the
// errno of create_symlink only when even the reset link cannot be made.
void check_localtime_link();

}  // namespace kav
