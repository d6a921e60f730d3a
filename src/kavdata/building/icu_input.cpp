#include "kavdata/building/icu_input.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <vector>

#include "components/icu_data_file.h"
#include "fs/unique_fd.h"
#include "kavdata/building/files.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

// The names of the ICU data files directly in `directory`.
std::vector<std::string> data_file_names(int directory, const std::string& shown) {
  std::vector<std::string> names;
  for (const std::string& name : names_in(directory, shown))
    if (!icu_format_of_file_name(name).empty()) names.push_back(name);
  return names;
}

}  // namespace

kav_icu_file read_icu(const std::string& file, const std::string& from) {
  std::string place = from, name;
  if (!file.empty()) {
    const std::size_t slash = file.rfind('/');
    place = slash == std::string::npos ? "." : file.substr(0, slash + 1);
    name = file.substr(slash + 1);
    if (icu_format_of_file_name(name).empty())
      throw kav_failure(escaped(file) +
                        ": an ICU data file is named icutzTAG.dat (TAG: digits, then l, b or e)");
  }
  unique_fd directory(::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.valid()) fail("cannot read " + escaped(place), errno);
  if (file.empty()) {
    // A data set's icutz/, else the directory itself.
    unique_fd icutz(::openat(directory.get(), "icutz", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (icutz.valid()) {
      directory = std::move(icutz);
      place += "/icutz";
    }
    const std::vector<std::string> names = data_file_names(directory.get(), escaped(place));
    if (names.size() != 1)
      throw kav_failure(escaped(place) + " holds " + std::to_string(names.size()) +
                        " ICU data files (icutzTAG.dat), not one");
    name = names[0];
  }
  std::int64_t time = 0;
  return {name, read_file_at(directory.get(), name, file.empty() ? escaped(place + "/" + name)
                                                                   : escaped(file), time)};
}

}  // namespace kav
