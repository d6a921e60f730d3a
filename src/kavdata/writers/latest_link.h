#pragma once

#include <string>

#include "kavdata/walks/failure.h"
#include "kavdata/writers/places.h"

// tz_latest, changed as a link made under another name and renamed over it,
// so that it always names a whole data set or nothing.
namespace kav {

// Makes the new link naming `root` under its temporary name. Throws
// kav_failure.
void make_next_latest(const kav_places& places, const std::string& root);

// Renames the new link over tz_latest. Throws kav_failure.
void move_latest(const kav_places& places);

// Deletes the new link that did not take tz_latest's place, then throws
// `failure`, saying also when the link is left behind.
[[noreturn]] void drop_next_latest(const kav_places& places, const kav_failure& failure);

// Points tz_latest at `root`, durably. Throws kav_failure.
void point_latest_at(const kav_places& places, const std::string& root);

}  // namespace kav
