#pragma once

#include <string>

namespace kav {

// The first white-space-delimited word of the file at `path` ("C" locale white
// space, no length limit). Empty, silently, when the file cannot be opened or
// holds no word.
std::string read_first_word(const std::string& path);

}  // namespace kav
