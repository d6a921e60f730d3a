#include "kavdata/walks/handles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "fs/walk.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/words.h"

namespace kav {

void (*between_judging_and_opening)(int, const char*) = nullptr;

int open_directory_at(int parent, const char* name) {
  return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

std::vector<std::string> names_in(int directory, const std::string& path) {
  // A duplicate, which the listing owns; it reads from the start, with the
  // rights the directory was opened with.
  const int copy = ::fcntl(directory, F_DUPFD_CLOEXEC, 0);
  const directory_handle listing(copy < 0 ? nullptr : ::fdopendir(copy));
  if (!listing) {
    const int error = errno;
    if (copy >= 0) ::close(copy);
    fail("cannot read " + escaped(path), error);
  }
  ::rewinddir(listing.get());
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(listing.get()))
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
      names.emplace_back(entry->d_name);
  // A listing that fails part-way would look like one that ends there.
  if (errno != 0) fail("cannot read " + escaped(path), errno);
  std::sort(names.begin(), names.end());
  return names;
}

void put_in_front(const std::string& path, std::deque<std::string>& parts) {
  std::vector<std::string> split;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find('/', start), path.size());
    split.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  parts.insert(parts.begin(), split.begin(), split.end());
}

bool mount_root(int fd) {
  struct statx status;
  return ::statx(fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &status) == 0 &&
         (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0 &&
         (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

}  // namespace kav
