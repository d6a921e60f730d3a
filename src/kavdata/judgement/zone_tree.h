#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "kavdata/zones/zone_file.h"

// The zone names of a data set, read by descriptor: the zone files under its
// zoneinfo/ and the links to them.
namespace kav {

// How much of a file is read as a zone file: far above any (tzdata's
// largest is under 4 KiB), far below what a device must not spend on one.
inline constexpr std::size_t zone_file_bound = std::size_t{1} << 20;

// Whether a file named `name` (its last part) is meant as a zone file, not
// one of tzdb's text files beside them: "+VERSION", the tables ("zone.tab",
// "tzdata.zi", ...), "leapseconds", "SECURITY".
bool zone_file_name(std::string_view name);

// Reads the zone file open at `fd`, at most zone_file_bound bytes; why it is
// not one, in words that follow its name ("is not a zone file: truncated:
// ..."), or empty.
std::string read_zone_file(int fd, kav_zone& zone);

struct kav_zone_name {
  std::string link;  // the zone name a link resolves to; empty for a file
  kav_zone zone;
};

struct kav_zone_tree {
  std::map<std::string, kav_zone_name> names;  // by name below zoneinfo/
  std::vector<std::string> problems;  // one line each: a name, and why it is bad
};

// Reads the zone names in the directory open at `zoneinfo`, `path` in
// messages, never through a link: a link is opened by the kernel's
// resolution beneath `zoneinfo` and named by the zone file it reaches. With
// `only`, only those names are read whole, the files their links reach too.
// Bounded in depth, names and bytes read; a name that cannot be read, or is
// not a zone file, or a link that leads out, is a problem.
kav_zone_tree read_zone_tree(int zoneinfo, const std::string& path,
                             const std::vector<std::string>& only = {});

}  // namespace kav
