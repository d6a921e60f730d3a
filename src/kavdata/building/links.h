#pragma once

#include <string>
#include <vector>

#include "kavdata/building/zic_input.h"

namespace kav {

// Makes each of `links`, in the directory open at `zoneinfo` where zic
// compiled them as hard links, which a data set may not hold, a relative
// symbolic link to the zone it names, as Debian's tzdata makes them: in the
// input's order, each through the links made before it (ln -sr).
void make_links(int zoneinfo, const std::vector<kav_link>& links);

// The content of a link at `name` to `target`, both below one directory.
std::string relative_link(const std::string& name, const std::string& target);

}  // namespace kav
