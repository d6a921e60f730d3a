#include "dataset/dataset_links.h"

#include <err.h>

#include "dataset/update_root.h"
#include "fs/file_ops.h"

namespace kav {

std::string read_latest_link() { return read_symlink(paths::latest_link); }

std::string read_current_link() {
  return root_from_zoneinfo_link(read_symlink(paths::zoneinfo_link));
}

std::string root_from_zoneinfo_link(const std::string& target) {
  if (has_update_prefix(target)) {
    // The last "/" must follow at least one byte of the data set's name.
    const std::size_t last_slash = target.rfind('/');
    if (last_slash > update_prefix_length) return target.substr(0, last_slash);
  } else if (target == paths::system_zoneinfo) {
    return {};
  }
  warn("Bad zoneinfo link %s", target.c_str());
  throw -1;
}

}  // namespace kav
