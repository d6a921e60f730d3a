#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kavdata/building/zic_input.h"

// A time zone release as a build reads it: an IANA release, unpacked, or a
// tzdata.zi with the tables beside it.
namespace kav {

using kav_named_files = std::vector<std::pair<std::string, std::string>>;  // name, bytes

struct kav_release {
  std::string version;    // the release's own word
  kav_zic_input input;    // what zic compiles
  kav_named_files tables;  // zone.tab, zone1970.tab, iso3166.tab, leapseconds
  std::int64_t time = 0;  // the newest of the files read
};

// Reads the release in the directory open at `directory`: the first line of
// its version file, its main data files as IANA installs them by default
// (backzone aside), its tables. `shown` prefixes a file's name in messages.
kav_release read_release(int directory, const std::string& shown);

// Reads the tzdata.zi at `path`, its version from its "# version" line, and
// the tables in its directory.
kav_release read_zi(const std::string& path);

// The directory that holds the release unpacked into the directory open at
// `unpacked`: that one, or the one directory in it (tzdb-VERSION/), as a
// descriptor for the caller to own. Throws kav_failure when it is neither.
int release_in(int unpacked);

}  // namespace kav
