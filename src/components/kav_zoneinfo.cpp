#include "components/kav_zoneinfo.h"

#include <err.h>

#include "components/first_word.h"
#include "fs/file_ops.h"

namespace kav {

kav_zoneinfo::kav_zoneinfo(const std::string& root)
    : kav_dataset_component(root),
      directory_(root.empty() ? paths::system_zoneinfo : root + "/zoneinfo") {
  initialize();
}

void kav_zoneinfo::initialize() {
  version_text_ = read_first_word(directory_ + "/+VERSION");
}

bool kav_zoneinfo::compatible_schema(const kav_dataset_component&) const {
  return true;
}

void kav_zoneinfo::install_link() const {
  try {
    remove(paths::zoneinfo_link);
  } catch (...) {
    warn("Unlink of zoneinfo softlink failed");
  }
  create_symlink(directory_, paths::zoneinfo_link);
}

}  // namespace kav
