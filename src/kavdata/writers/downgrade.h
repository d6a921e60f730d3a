#pragma once

#include <string>

namespace kav {

// Why staging `version` would take back an update silently: tz_latest names
// a data set that is staged, whole and newer than the one in use, so that
// the next start takes it, and `version` is older; empty when it would not.
// Only reads.
std::string downgrade_words(const std::string& version);

}  // namespace kav
