#pragma once

#include <string>

namespace kav {

// Points tz_latest at the staged data set `version`, whatever the next start
// would make of it, or removes it for "none", as root: what an update engine
// needs to take an install back. Returns the exit status, having said what
// it did or why not.
int point_latest(const std::string& version);

}  // namespace kav
