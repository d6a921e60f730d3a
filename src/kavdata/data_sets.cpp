#include "kavdata/data_sets.h"

#include <sys/stat.h>

#include "fs/paths.h"
#include "kavdata/failure.h"
#include "kavdata/tree.h"

namespace kav {

std::vector<kav_data_set_dir> list_data_sets(const kav_device& device, int& error) {
  std::vector<std::string> names;
  try {
    names = directory_names(paths::update_parent);
  } catch (const kav_failure& failure) {
    error = failure.error();
  }
  const std::pair<std::string, const char*> named[] = {
      {device.current_link_usable ? data_set_name(device.current_root) : "", "in-use"},
      {device.icutz.type == kav_entry::link ? data_set_name(device.icutz.target) : "", "icu"},
      {data_set_name(device.latest.content), "latest"}};
  std::vector<kav_data_set_dir> found;
  for (const std::string& name : names) {
    kav_data_set_dir dir;
    dir.name = name;
    const std::string path = paths::update_parent + name;
    struct stat status;
    dir.directory = ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    if (dir.directory) dir.size = tree_size(path, dir.error);
    for (const auto& [named_name, role] : named)
      if (named_name == name) dir.roles.push_back(role);
    found.push_back(std::move(dir));
  }
  return found;
}

}  // namespace kav
