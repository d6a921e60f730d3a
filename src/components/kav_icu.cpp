#include "components/kav_icu.h"

#include <cerrno>
#include <cstring>
#include <err.h>

#include "components/first_word.h"
#include "components/icu_data_file.h"
#include "fs/fail.h"
#include "fs/file_ops.h"
#include "fs/walk.h"

namespace kav {

kav_icu::kav_icu(const std::string& root)
    : kav_dataset_component(root),
      directory_(root.empty() ? paths::system_icu : root + "/icutz") {
  initialize();
}

void kav_icu::initialize() {
  if (root().empty())
    format_ = read_first_word(directory_ + "/icutzformat.txt");
  else
    find_format_in_data_file_name();
}

void kav_icu::find_format_in_data_file_name() {
  const walk_handle walk = open_walk(directory_, FTS_COMFOLLOW | FTS_PHYSICAL | FTS_XDEV);
  if (!walk)
    warn_and_throw("tz_icu::initialize: fts_open of %s failed, %s",
                   directory_.c_str(), std::strerror(errno));

  while (format_.empty()) {
    FTSENT* const entry = fts_read(walk.get());
    if (entry == nullptr) break;
    if (may_be_icu_data_file(*entry))
      format_ = icu_format_of_file_name({entry->fts_name, entry->fts_namelen});
  }
}

bool kav_icu::compatible_schema(const kav_dataset_component& other) const {
  const auto* const other_icu = dynamic_cast<const kav_icu*>(&other);
  if (other_icu == nullptr) {
    warn("kav_icu::compatible_schema: could not dynamic_cast other component");
    return false;
  }
  return format_ == other_icu->format_;
}

void kav_icu::install_link() const {
  try {
    remove(paths::icutz_link);
  } catch (...) {
    warn("unlink of ICU softlink failed");
  }
  // The system's ICU data is found without a link.
  if (root().empty()) return;
  create_symlink(directory_, paths::icutz_link);
}

}  // namespace kav
