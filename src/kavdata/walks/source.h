#pragma once

#include <cstddef>
#include <string>

// The files that others hand to kavdata: an archive and its signature.
namespace kav {

// Opens the regular file at `path` for reading with the rights of whoever
// gives it: it must not be a link, nor, for root, have a second name (a
// hard link), and a FIFO or device never blocks or is read; "-" is standard
// input. Returns a descriptor for the caller to own.
// Throws kav_failure naming the path.
int open_source(const std::string& path);

// At most `limit` bytes of `fd`, all of them; throws kav_failure naming
// `what` when it holds more or cannot be read.
std::string read_bounded(int fd, std::size_t limit, const std::string& what);

}  // namespace kav
