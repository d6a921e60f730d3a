#include "kavdata/walks/beneath.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "fs/unique_fd.h"

namespace kav {
namespace {

constexpr int read_flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC;
constexpr int link_limit = 40;

// Splits `path` into its names, in front of `names`.
void push_names(const std::string& path, std::deque<std::string>& names) {
  std::deque<std::string> split;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    if (end > start) split.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  names.insert(names.begin(), split.begin(), split.end());
}

}  // namespace

// The directories passed keep their descriptors, so ".." returns to the one
// before and never above `root`.
int open_beneath_by_names(int root, const std::string& relative) {
  std::deque<std::string> names;
  push_names(relative, names);
  std::vector<unique_fd> passed;
  int links = 0;
  while (!names.empty()) {
    const std::string name = names.front();
    names.pop_front();
    const int here = passed.empty() ? root : passed.back().get();
    if (name == ".") continue;
    if (name == "..") {
      if (passed.empty()) return errno = EXDEV, -1;
      passed.pop_back();
      continue;
    }
    unique_fd next(::openat(here, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!next.valid() || ::fstat(next.get(), &status) != 0) return -1;
    if (S_ISLNK(status.st_mode)) {
      char target[4096];
      const ssize_t length = ::readlinkat(next.get(), "", target, sizeof target);
      if (length < 0) return -1;
      if (length == sizeof target) return errno = ENAMETOOLONG, -1;
      if (++links > link_limit) return errno = ELOOP, -1;
      if (length == 0 || target[0] == '/') return errno = EXDEV, -1;
      push_names(std::string(target, static_cast<std::size_t>(length)), names);
    } else if (names.empty()) {
      // The last name, not a link: opened again to read, still not following.
      return ::openat(here, name.c_str(), read_flags | O_NOFOLLOW);
    } else if (!S_ISDIR(status.st_mode)) {
      return errno = ENOTDIR, -1;
    } else {
      passed.push_back(std::move(next));
    }
  }
  return ::openat(passed.empty() ? root : passed.back().get(), ".", read_flags);
}

int open_beneath(int root, const std::string& relative) {
  open_how how{};
  how.flags = read_flags;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
  const long fd = ::syscall(SYS_openat2, root, relative.c_str(), &how, sizeof how);
  if (fd >= 0 || (errno != ENOSYS && errno != EPERM)) return static_cast<int>(fd);
  return open_beneath_by_names(root, relative);
}

}  // namespace kav
