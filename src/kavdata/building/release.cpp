#include "kavdata/building/release.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/unique_fd.h"
#include "kavdata/building/files.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

constexpr const char* data_files[] = {"africa",    "antarctica", "asia",
                                      "australasia", "europe",   "northamerica",
                                      "southamerica", "etcetera", "factory",
                                      "backward"};
constexpr const char* table_files[] = {"zone.tab", "zone1970.tab", "iso3166.tab", "leapseconds"};

// The first line of `text`, without blanks around it.
std::string first_line(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  const std::size_t start = line.find_first_not_of(" \t\r");
  const std::size_t end = line.find_last_not_of(" \t\r");
  return start == std::string::npos ? "" : line.substr(start, end - start + 1);
}

void read_tables(int directory, const std::string& shown, kav_release& release) {
  for (const char* name : table_files)
    release.tables.emplace_back(name, read_file_at(directory, name, shown + name, release.time));
}

}  // namespace

kav_release read_release(int directory, const std::string& shown) {
  kav_release release;
  release.version =
      first_line(read_file_at(directory, "version", shown + "version", release.time));
  kav_named_files data;
  for (const char* name : data_files)
    data.emplace_back(name, read_file_at(directory, name, shown + name, release.time));
  release.input = joined_input(release.version, data);
  read_tables(directory, shown, release);
  return release;
}

kav_release read_zi(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string place = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const unique_fd directory(::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory.valid()) fail("cannot read " + escaped(place), errno);
  kav_release release;
  const std::string name = path.substr(slash + 1);
  release.input.text = read_file_at(directory.get(), name, escaped(path), release.time);
  release.input.file = name;
  // The version stands in the comments that open the file.
  for (std::size_t start = 0; start < release.input.text.size();) {
    const std::size_t end = std::min(release.input.text.find('\n', start), release.input.text.size());
    const std::string line = release.input.text.substr(start, end - start);
    start = end + 1;
    if (line.compare(0, 10, "# version ") == 0) release.version = first_line(line.substr(10));
    if (!release.version.empty() || line.compare(0, 1, "#") != 0) break;
  }
  if (release.version.empty())
    throw kav_failure(escaped(path) + " has no \"# version\" line at its top: it names no release");
  read_tables(directory.get(), escaped(slash == std::string::npos ? "" : place), release);
  return release;
}

int release_in(int unpacked) {
  struct stat status;
  if (::fstatat(unpacked, "version", &status, AT_SYMLINK_NOFOLLOW) == 0)
    return ::fcntl(unpacked, F_DUPFD_CLOEXEC, 0);
  const std::vector<std::string> names = names_in(unpacked, "the unpacked release");
  if (names.size() == 1) {
    const int found = open_directory_at(unpacked, names[0].c_str());
    if (found >= 0) return found;
  }
  std::string listed;
  for (std::size_t i = 0; i < names.size() && i < 3; ++i)
    listed += (i == 0 ? "" : ", ") + escaped(names[i]);
  throw kav_failure("the tarball is no release: it holds " +
                    (names.empty() ? std::string("nothing")
                                   : std::to_string(names.size()) + " entries at its top (" +
                                         listed + (names.size() > 3 ? ", ..." : "") + ")") +
                    ", not a version file nor one directory");
}

}  // namespace kav
