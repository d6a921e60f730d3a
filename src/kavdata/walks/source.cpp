#include "kavdata/walks/source.h"

#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/unique_fd.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/io.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

// As many links as the kernel follows in one lookup.
constexpr int link_hops = 40;

constexpr char only_roots_links[] =
    ": a source is reached only through root's links in directories that only root may write";

// Refuses the link at `shown` unless no one but root could have made or
// changed it.
void refuse_unless_roots(const std::string& shown, const struct stat& link,
                         const struct stat& directory) {
  if (link.st_uid != 0)
    throw kav_failure(escaped(shown) + " is a link of user " + std::to_string(link.st_uid) +
                      only_roots_links);
  if (directory.st_uid != 0 || (directory.st_mode & (S_IWGRP | S_IWOTH)) != 0)
    throw kav_failure(escaped(shown) + " is a link in a directory that others than root may write" +
                      only_roots_links);
}

std::string joined(const std::string& directory, const std::string& name) {
  if (directory.empty()) return name;
  return directory.back() == '/' ? directory + name : directory + "/" + name;
}

bool only_dots(const std::deque<std::string>& parts) {
  for (const std::string& part : parts)
    if (!part.empty() && part != ".") return false;
  return true;
}

}  // namespace

int open_given(const std::string& path, int flags, std::string* name) {
  if (path.empty()) {
    errno = ENOENT;
    return -1;
  }
  const bool absolute = path[0] == '/';
  unique_fd here(::open(absolute ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  std::string at = absolute ? "/" : "";  // where `here` stands, for messages
  std::deque<std::string> parts;
  put_in_front(path, parts);
  if (name != nullptr) name->clear();
  for (int hops = 0; here.valid();) {
    if (only_dots(parts)) return ::openat(here.get(), ".", flags | O_CLOEXEC);
    const std::string part = parts.front();
    parts.pop_front();
    if (part.empty() || part == ".") continue;
    const bool last = only_dots(parts);
    struct stat status, directory;
    if (::fstatat(here.get(), part.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return -1;
    if (S_ISLNK(status.st_mode)) {
      if (::fstat(here.get(), &directory) != 0) return -1;
      refuse_unless_roots(joined(at, part), status, directory);
      char target[4096];
      const ssize_t length = ::readlinkat(here.get(), part.c_str(), target, sizeof target);
      if (length < 0) return -1;
      if (++hops > link_hops || static_cast<std::size_t>(length) == sizeof target) {
        errno = ELOOP;
        return -1;
      }
      put_in_front(std::string(target, static_cast<std::size_t>(length)), parts);
      if (length > 0 && target[0] == '/') {
        here = unique_fd(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
        at = "/";
      }
      continue;
    }
    if (last) {
      if (name != nullptr && part != "..") *name = part;
      return ::openat(here.get(), part.c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
    }
    here = unique_fd(::openat(here.get(), part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    at = joined(at, part);
  }
  return -1;
}

int open_source(const std::string& path) {
  if (path == "-") {
    const int input = ::dup(0);
    if (input < 0) fail("cannot read standard input", errno);
    return input;
  }
  const int fd = open_given(path, O_RDONLY | O_NONBLOCK);
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
  std::string bytes;
  if (const int error = read_at_most(fd, limit, bytes); error != 0)
    fail("cannot read " + what, error);
  if (bytes.size() > limit) throw kav_failure(what + " is larger than " + size_words(limit));
  return bytes;
}

ssize_t read_stream(int fd, void* buffer, std::size_t size) {
  for (;;) {
    const ssize_t length = ::read(fd, buffer, size);
    if (length < 0 && errno == EINTR) continue;
    if (length < 0 && errno == EAGAIN) {
      pollfd wanted = {fd, POLLIN, 0};
      ::poll(&wanted, 1, -1);
      continue;
    }
    return length;
  }
}

}  // namespace kav
