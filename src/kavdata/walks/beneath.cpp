#include "kavdata/walks/beneath.h"

#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "fs/unique_fd.h"
#include "kavdata/walks/handles.h"

namespace kav {

bool openat2_missing = false;

namespace {

// As many links as the kernel follows in one lookup.
constexpr int link_hops = 40;

int fail_with(int error) {
  errno = error;
  return -1;
}

// The directory `names` below the top, opened again from it.
unique_fd reopen(int top, const std::vector<std::string>& names) {
  unique_fd at(::openat(top, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  for (const std::string& name : names) {
    if (!at.valid()) break;
    at = unique_fd(::openat(at.get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  }
  return at;
}

// The kernel's walk, by hand: every step relative to the directory it stands
// in, every directory on the way a real one of the set, at most link_hops
// links read.
int walk_chain(int top, const std::string& below, int flags) {
  struct stat top_status;
  if (::fstat(top, &top_status) != 0) return -1;
  std::vector<std::string> names;  // the real directories from the top to `here`
  unique_fd here = reopen(top, names);
  std::deque<std::string> parts;
  put_in_front(below, parts);
  int hops = 0;
  while (here.valid() && !parts.empty()) {
    const std::string part = parts.front();
    parts.pop_front();
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (names.empty()) return fail_with(EXDEV);
      names.pop_back();
      here = reopen(top, names);
      continue;
    }
    struct stat status;
    if (::fstatat(here.get(), part.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return -1;
    if (status.st_dev != top_status.st_dev) return fail_with(EXDEV);
    if (S_ISLNK(status.st_mode)) {
      char target[4096];
      const ssize_t length = ::readlinkat(here.get(), part.c_str(), target, sizeof target);
      if (length < 0) return -1;
      if (++hops > link_hops || static_cast<std::size_t>(length) == sizeof target)
        return fail_with(ELOOP);
      if (length == 0) return fail_with(ENOENT);
      if (target[0] == '/') return fail_with(EXDEV);
      put_in_front(std::string(target, static_cast<std::size_t>(length)), parts);
      continue;
    }
    if (parts.empty()) return ::openat(here.get(), part.c_str(), flags | O_NOFOLLOW);
    if (!S_ISDIR(status.st_mode)) return fail_with(ENOTDIR);
    here = unique_fd(::openat(here.get(), part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (here.valid() && mount_root(here.get())) return fail_with(EXDEV);
    names.push_back(part);
  }
  return here.valid() ? ::openat(here.get(), ".", flags) : -1;
}

}  // namespace

int open_beneath(int top, const std::string& below, int flags) {
  open_how how{};
  how.flags = static_cast<__u64>(flags);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_XDEV;
  // EAGAIN: a rename elsewhere raced a ".." step; the kernel asks to try again.
  for (int tries = 0; !openat2_missing && tries < 8; ++tries) {
    const long fd = ::syscall(SYS_openat2, top, below.c_str(), &how, sizeof how);
    if (fd >= 0 || (errno != EAGAIN && errno != ENOSYS)) return static_cast<int>(fd);
    if (errno == ENOSYS) openat2_missing = true;
  }
  return walk_chain(top, below, flags);
}

}  // namespace kav
