#pragma once

#include <string>

namespace kav {

// The first white-space-delimited word of the file at `path` ("C" locale white
// space, no length limit). Empty, silently, when the file cannot be opened or
// holds no word. Read by the reader in force, which is the boot program's own
// unless a caller has put another in its place.
std::string read_first_word(const std::string& path);

// Whether `c` is white space of the "C" locale, which parts words.
bool is_word_space(char c);

// A reader of first words. kavdata, which must never block on a FIFO or fill
// memory with a long word, builds data sets with a bounded one of its own.
using first_word_reader = std::string (*)(const std::string& path);

// Puts `reader` in force and returns the one it replaces.
first_word_reader replace_first_word_reader(first_word_reader reader);

}  // namespace kav
