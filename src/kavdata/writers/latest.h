#pragma once

#include <string>

namespace kav {

// Points tz_latest at the staged data set `version`, whatever the next start
// would make of it, or removes it for "none", as root. Returns the exit
// status, having said what it did or why not.
int point_latest(const std::string& version);

// Makes tz_latest the link to exactly `target`, written as show writes the
// Latest property, whatever it names, as root: how an update engine puts
// back the link it found before an install. Returns the exit status, having
// said what it did or why not.
int put_back_latest(const std::string& target);

// Both first settle what interrupted commands left, and leave the clean-up
// request (staging::clean_request) when a data set under
// /var/db/timezone/tz/ is then named by no link, so that the next boot's
// clean deletes it.

}  // namespace kav
