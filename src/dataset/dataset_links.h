#pragma once

#include <string>

namespace kav {

// The target of /var/db/timezone/tz_latest as stored, the root of the newest
// download; empty when there is no such link. Throws errno, after a warning,
// when the path is not a link.
std::string read_latest_link();

// The root of the data set that /var/db/timezone/zoneinfo names: empty for
// the system partition's. Throws errno when the path cannot be read as a
// link, and -1 after "Bad zoneinfo link" for a missing or malformed target.
std::string read_current_link();

// The root named by a zoneinfo link target: the target up to its last "/" for
// an update's directory, empty for /usr/share/zoneinfo.default. Anything else
// warns "Bad zoneinfo link" and throws -1.
std::string root_from_zoneinfo_link(const std::string& target);

}  // namespace kav
