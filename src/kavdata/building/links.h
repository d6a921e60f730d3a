#pragma once

#include <string>
#include <vector>

#include "kavdata/building/zic_input.h"

namespace kav {

// Makes each Link of `input` in the directory open at `zoneinfo`, where zic
// compiled its zones, a relative symbolic link to the zone it names, as
// Debian's tzdata makes them: in the input's order, each through the links
// made before it (ln -sr); zic would make hard links, which a data set may
// not hold. Throws kav_failure, naming the line, for a name that zic would
// refuse ("..", ".", an empty part, a leading "/"), a name given twice or
// already a zone, and a link that leads to no zone.
void make_links(int zoneinfo, const kav_zic_input& input);

// The content of a link at `name` to `target`, both below one directory.
std::string relative_link(const std::string& name, const std::string& target);

}  // namespace kav
