#include "kavdata/device/tree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>

#include "fs/walk.h"
#include "kavdata/walks/failure.h"

namespace kav {

std::uint64_t tree_size(const std::string& path, int& error) {
  const walk_handle walk = open_walk(path, FTS_PHYSICAL | FTS_NOCHDIR);
  if (!walk) {
    error = errno;
    return 0;
  }
  std::uint64_t size = 0;
  while (const FTSENT* entry = fts_read(walk.get())) {
    if (entry->fts_info == FTS_F) size += static_cast<std::uint64_t>(entry->fts_statp->st_size);
    if ((entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR || entry->fts_info == FTS_NS) &&
        error == 0)
      error = entry->fts_errno;
  }
  if (errno != 0 && error == 0) error = errno;
  return size;
}

std::vector<std::string> directory_names(const std::string& path) {
  const directory_handle directory(::opendir(path.c_str()));
  if (!directory) fail("cannot read " + path, errno);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(directory.get()))
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
      names.emplace_back(entry->d_name);
  if (errno != 0) fail("cannot read " + path, errno);
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace kav
