#include "kavdata/data_sets.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>

#include "fs/paths.h"
#include "fs/walk.h"
#include "kavdata/tree.h"

namespace kav {

std::vector<kav_data_set_dir> list_data_sets(const kav_device& device, int& error) {
  std::vector<kav_data_set_dir> found;
  const directory_handle listing(::opendir(paths::update_parent));
  if (!listing) {
    error = errno;
    return found;
  }
  const std::pair<std::string, const char*> named[] = {
      {device.current_link_usable ? data_set_name(device.current_root) : "", "in-use"},
      {device.icutz.type == kav_entry::link ? data_set_name(device.icutz.target) : "", "icu"},
      {data_set_name(device.latest.content), "latest"}};
  while (const dirent* entry = ::readdir(listing.get())) {
    kav_data_set_dir dir;
    dir.name = entry->d_name;
    if (dir.name == "." || dir.name == "..") continue;
    const std::string path = paths::update_parent + dir.name;
    struct stat status;
    dir.directory = ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    if (dir.directory) dir.size = tree_size(path, dir.error);
    for (const auto& [name, role] : named)
      if (name == dir.name) dir.roles.push_back(role);
    found.push_back(std::move(dir));
  }
  std::sort(found.begin(), found.end(),
            [](const kav_data_set_dir& a, const kav_data_set_dir& b) { return a.name < b.name; });
  return found;
}

}  // namespace kav
