#pragma once

#include <string_view>

namespace kav {

// Whether a link at `location`, relative to the data set's top, holding
// `target`, leads to a place inside the data set wherever it is staged.
// Shared by check's walk and the unpacking of an archive.
bool stays_inside(std::string_view location, std::string_view target);

}  // namespace kav
