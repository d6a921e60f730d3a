#include "kavdata/walks/source.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kavdata/walks/failure.h"
#include "kavdata/walks/words.h"

namespace kav {

int open_source(const std::string& path) {
  if (path == "-") {
    const int input = ::dup(0);
    if (input < 0) fail("cannot read standard input", errno);
    return input;
  }
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  struct stat status;
  if (fd < 0 || ::fstat(fd, &status) != 0) {
    const int error = errno;
    if (fd >= 0) ::close(fd);
    if (error == ENOENT) throw kav_failure(escaped(path) + " does not exist");
    fail("cannot read " + escaped(path), error);
  }
  if (!S_ISREG(status.st_mode)) {
    ::close(fd);
    throw kav_failure(escaped(path) + " is not a regular file");
  }
  // A second name may be anyone's link to a file that only its owner reads.
  if (::geteuid() == 0 && status.st_nlink > 1) {
    ::close(fd);
    throw kav_failure(escaped(path) + " has " + std::to_string(status.st_nlink) +
                      " names (hard links): root reads a file given by its name only when it "
                      "has no other");
  }
  return fd;
}

std::string read_bounded(int fd, std::size_t limit, const std::string& what) {
  std::string bytes(limit + 1, '\0');
  std::size_t length = 0;
  while (length <= limit) {
    const ssize_t got = ::read(fd, bytes.data() + length, bytes.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail("cannot read " + what, errno);
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
  }
  if (length > limit) throw kav_failure(what + " is larger than " + size_words(limit));
  bytes.resize(length);
  return bytes;
}

}  // namespace kav
