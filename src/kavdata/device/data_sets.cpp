#include "kavdata/device/data_sets.h"

#include <sys/stat.h>

#include "fs/paths.h"
#include "kavdata/device/tree.h"
#include "kavdata/walks/failure.h"

namespace kav {

std::vector<kav_data_set_dir> list_data_sets(const kav_device& device, int& error) {
  std::vector<std::string> names;
  try {
    names = directory_names(paths::update_parent);
  } catch (const kav_failure& failure) {
    error = failure.error();
  }
  const std::pair<std::string, kav_data_set_role> named[] = {
      {device.current_link_usable ? data_set_name(device.current_root) : "",
       kav_data_set_role::in_use},
      {device.icutz.type == kav_entry::link ? data_set_name(device.icutz.target) : "",
       kav_data_set_role::icu},
      {data_set_name(device.latest.content), kav_data_set_role::latest}};
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

std::string roles_text(const kav_data_set_dir& dir, bool in_words) {
  static const char* const names[][2] = {
      {"in-use", "in use"}, {"icu", "named by /var/db/icutz"}, {"latest", "named by tz_latest"}};
  std::string text;
  for (const kav_data_set_role role : dir.roles)
    text += (text.empty() ? "" : in_words ? ", " : ",") +
            std::string(names[static_cast<int>(role)][in_words]);
  if (!text.empty()) return text;
  if (dir.directory) return in_words ? "out of use" : "out-of-use";
  return in_words ? "not a directory" : "not-a-directory";
}

}  // namespace kav
