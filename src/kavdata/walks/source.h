#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>

// The files that others hand to kavdata: a data set's directory, an archive
// and its signature.
namespace kav {

// Opens what `path`, as given on the command line, leads to, with openat(2)
// `flags` (O_NOFOLLOW added), looking every component up by descriptor. A
// link in any component is followed only where no one but root could have
// made or changed it: the link is root's, in a directory that only root may
// write (an image's /var/tmp -> volatile/tmp). Returns a descriptor for the
// caller to own, or -1 with errno; `name`, when given, gets the name of what
// it reached, or "" where the path ends in "." or "..". Throws kav_failure,
// in one line naming the link, for any other link.
int open_given(const std::string& path, int flags, std::string* name = nullptr);

// Opens the regular file at `path` for reading, reached as open_given
// reaches it: it must not be a link, nor, for root, have a second name (a
// hard link), and a FIFO or device never blocks or is read; "-" is standard
// input. Returns a descriptor for the caller to own.
// Throws kav_failure naming the path.
int open_source(const std::string& path);

// At most `limit` bytes of `fd`, all of them; throws kav_failure naming
// `what` when it holds more or cannot be read.
std::string read_bounded(int fd, std::size_t limit, const std::string& what);

// read(2) of a stream: retried when interrupted, and waiting for a pipe that
// was handed over non-blocking.
ssize_t read_stream(int fd, void* buffer, std::size_t size);

}  // namespace kav
