#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// How kavdata puts bytes, sizes and errors into words.
namespace kav {

// Printable ASCII as it stands but "\" as "\\", every other byte as \xHH:
// names and contents are bytes, and a line of output must stay one line.
std::string escaped(std::string_view bytes);

// A size in bytes, in the largest binary unit that keeps it at 1 or more:
// "512 B", "1.5 KiB", "12.3 MiB".
std::string size_words(std::uint64_t bytes);

// The text of an errno.
std::string error_words(int error);

}  // namespace kav
