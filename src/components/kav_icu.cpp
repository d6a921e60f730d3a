#include "components/kav_icu.h"

#include <cerrno>
#include <cstring>
#include <err.h>
#include <fts.h>
#include <memory>
#include <regex>
#include <string_view>
#include <sys/stat.h>

#include "components/first_word.h"
#include "fs/fail.h"
#include "fs/file_ops.h"

namespace kav {
namespace {

using walk_handle = std::unique_ptr<FTS, decltype(&fts_close)>;

// Only a regular file directly inside the directory, readable by everyone,
// can be the data file.
bool may_be_data_file(const FTSENT& entry) {
  return entry.fts_errno == 0 && entry.fts_level == 1 &&
         entry.fts_namelen != 0 && entry.fts_info == FTS_F &&
         (entry.fts_statp->st_mode & S_IROTH) != 0;
}

// Whether `name` could match the data file pattern, which begins with "icutz"
// and ends with ".dat": a cheap test, so that the regular expression, which
// alone decides, sees only names it might accept.
bool may_be_data_file_name(std::string_view name) {
  constexpr std::string_view head = "icutz", tail = ".dat";
  return name.size() > head.size() + tail.size() &&
         name.substr(0, head.size()) == head &&
         name.substr(name.size() - tail.size()) == tail;
}

}  // namespace

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
  // Compiled once per process: compiling costs far more than matching. The
  // breadth-first engine's stack depth does not grow with the name's length.
  static const std::regex data_file_name(
      R"(icutz([0-9]+[lbe])\.dat)",
      std::regex::ECMAScript | std::regex_constants::__polynomial);
  char* const top[] = {const_cast<char*>(directory_.c_str()), nullptr};
  const walk_handle walk(
      fts_open(top, FTS_COMFOLLOW | FTS_PHYSICAL | FTS_XDEV, nullptr), &fts_close);
  if (!walk)
    warn_and_throw("tz_icu::initialize: fts_open of %s failed, %s",
                   directory_.c_str(), std::strerror(errno));

  while (format_.empty()) {
    FTSENT* const entry = fts_read(walk.get());
    if (entry == nullptr) break;
    std::cmatch tag;
    if (may_be_data_file(*entry) &&
        may_be_data_file_name({entry->fts_name, entry->fts_namelen}) &&
        std::regex_match(entry->fts_name, tag, data_file_name))
      format_ = tag[1].str();
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
