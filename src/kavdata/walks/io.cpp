#include "kavdata/walks/io.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

#include "kavdata/walks/failure.h"

namespace kav {

int read_at_most(int fd, std::size_t limit, std::string& bytes) {
  char chunk[65536];
  for (const std::size_t start = bytes.size(); bytes.size() - start <= limit;) {
    const std::size_t wanted = std::min(sizeof chunk, limit + 1 - (bytes.size() - start));
    const ssize_t got = ::read(fd, chunk, wanted);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno;
    if (got == 0) break;
    bytes.append(chunk, static_cast<std::size_t>(got));
  }
  return 0;
}

void write_all(int fd, const char* bytes, std::size_t size, const std::string& what) {
  while (size > 0) {
    const ssize_t written = ::write(fd, bytes, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) fail("cannot write " + what, errno);
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
}

}  // namespace kav
