#pragma once

#include <string>

namespace kav {

// Installs the unpacked data set `directory` as /var/db/timezone/tz/VERSION
// (VERSION: `as`, or the directory's name) and points tz_latest at it, so
// that the next start switches to it; refuses, changing nothing, what check
// refuses. A stage that fails either finished its job or leaves nothing of
// itself behind, and says which. Returns the exit status, having said what it
// did or why not.
int stage_data_set(const std::string& directory, const std::string& as);

// Points tz_latest at the staged data set `version`, whatever the next start
// would make of it, or removes it for "none", as root: what an update engine
// needs to take an install back. Returns the exit status, having said what it did or why not.
int point_latest(const std::string& version);

}  // namespace kav
