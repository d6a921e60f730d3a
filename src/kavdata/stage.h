#pragma once

#include <string>

namespace kav {

// Installs the unpacked data set `directory` as /var/db/timezone/tz/VERSION
// (VERSION: `as`, or the directory's name) and points tz_latest at it, so
// that the next start switches to it; refuses, changing nothing, what check
// refuses. Returns the exit status, having said what it did or why not.
int stage_data_set(const std::string& directory, const std::string& as);

}  // namespace kav
