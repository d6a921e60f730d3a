#include "components/kav_icu.h"

#include <cerrno>
#include <cstring>
#include <err.h>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <regex>
#include <string_view>
#include <sys/stat.h>

#include "components/first_word.h"
#include "fs/fail.h"
#include "fs/file_ops.h"

namespace kav {
namespace {

struct directory_closer {
  void operator()(DIR* directory) const { ::closedir(directory); }
};
using directory_handle = std::unique_ptr<DIR, directory_closer>;

// A name that the data file pattern, which begins with "icutz" and ends with
// ".dat", could match. Cheap, so that the regular expression sees only names
// it might accept; the expression alone decides.
bool may_be_data_file_name(std::string_view name) {
  constexpr std::string_view head = "icutz", tail = ".dat";
  return name.size() > head.size() + tail.size() &&
         name.substr(0, head.size()) == head &&
         name.substr(name.size() - tail.size()) == tail;
}

// Only a regular file directly inside the directory, readable by everyone,
// can be the data file; a link is not followed.
bool may_be_data_file(int directory_fd, const char* name) {
  struct stat status;
  return ::fstatat(directory_fd, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(status.st_mode) && (status.st_mode & S_IROTH) != 0;
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
  // Compiled once per process: compiling costs far more than matching.
  static const std::regex data_file_name(R"(icutz([0-9]+[lbe])\.dat)");
  // The directory is read once, in its own order, and only its top level:
  // nothing below it can qualify. A directory that is missing or cannot be
  // read holds no tag; only running out of memory is a failure, reported in
  // the words this walk has always used.
  const directory_handle directory(::opendir(directory_.c_str()));
  if (!directory) {
    if (errno != ENOMEM) return;
    warn_and_throw("tz_icu::initialize: fts_open of %s failed, %s",
                   directory_.c_str(), std::strerror(errno));
  }
  while (const dirent* const entry = ::readdir(directory.get())) {
    std::cmatch tag;
    if (may_be_data_file_name(entry->d_name) &&
        std::regex_match(entry->d_name, tag, data_file_name) &&
        may_be_data_file(::dirfd(directory.get()), entry->d_name)) {
      format_ = tag[1].str();
      return;
    }
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
