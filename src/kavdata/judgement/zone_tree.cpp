#include "kavdata/judgement/zone_tree.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/unique_fd.h"
#include "kavdata/walks/beneath.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/limits.h"
#include "kavdata/walks/io.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

struct kav_found {
  bool link = false;
  dev_t device = 0;
  ino_t inode = 0;
};

class kav_tree_reader {
 public:
  kav_tree_reader(int zoneinfo, const std::string& path) : zoneinfo_(zoneinfo), path_(path) {}

  kav_zone_tree read(const std::vector<std::string>& only) {
    try {
      walk(zoneinfo_, "", 0);
    } catch (const kav_failure& failure) {
      tree_.problems.push_back(failure.what());
      return std::move(tree_);
    }
    for (const auto& [name, found] : found_)
      if (only.empty() || std::find(only.begin(), only.end(), name) != only.end()) take(name, found);
    return std::move(tree_);
  }

 private:
  void problem(const std::string& name, const std::string& why) {
    tree_.problems.push_back(escaped(path_ + "/" + name) + " " + why);
  }

  // Lists every entry, keeping the zone files and links by name.
  void walk(int directory, const std::string& prefix, std::size_t depth) {
    if (depth > depth_limit)
      throw kav_failure(escaped(path_ + "/" + prefix) + " lies too deep for zoneinfo/");
    for (const std::string& name : names_in(directory, path_ + "/" + prefix)) {
      const std::string full = prefix + name;
      struct stat status;
      if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        problem(full, "cannot be read: " + error_words(errno));
        continue;
      }
      if (S_ISDIR(status.st_mode)) {
        const unique_fd below(open_directory_at(directory, name.c_str()));
        if (!below.valid()) problem(full, "cannot be read: " + error_words(errno));
        else walk(below.get(), full + "/", depth + 1);
      } else if ((S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) && zone_file_name(name)) {
        if (found_.size() >= archive_entry_limit)
          throw kav_failure(escaped(path_) + " holds more than " + std::to_string(archive_entry_limit) +
                   " zone names");
        found_[full] = {S_ISLNK(status.st_mode), status.st_dev, status.st_ino};
        if (S_ISREG(status.st_mode)) by_file_.emplace(std::make_pair(status.st_dev, status.st_ino), full);
      }
    }
  }

  // Reads one name as the kernel resolves it beneath zoneinfo/: a link to
  // the file it reaches, a file only as the one the walk found.
  void take(const std::string& name, const kav_found& found) {
    const unique_fd fd(open_beneath(zoneinfo_, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status;
    if (!fd.valid() && errno == EXDEV) return problem(name, "leads out of the data set");
    if (!fd.valid() || ::fstat(fd.get(), &status) != 0)
      return problem(name, "cannot be read: " + error_words(errno));
    if (!found.link && (status.st_dev != found.device || status.st_ino != found.inode))
      return problem(name, "changed while it was read");
    if (!S_ISREG(status.st_mode)) {
      // A link to a directory (posix -> .) names no zone.
      if (!S_ISDIR(status.st_mode)) problem(name, "is not a zone file: not a regular file");
      return;
    }
    kav_zone_name entry;
    if (found.link) {
      const auto target = by_file_.find({status.st_dev, status.st_ino});
      if (target == by_file_.end()) return problem(name, "leads to no zone file of the data set");
      entry.link = target->second;
    }
    const std::string why = read_zone_file(fd.get(), entry.zone);
    if (!why.empty()) return problem(name, why);
    tree_.names.emplace(name, std::move(entry));
  }

  int zoneinfo_;
  std::string path_;
  kav_zone_tree tree_;
  std::map<std::string, kav_found> found_;
  std::map<std::pair<dev_t, ino_t>, std::string> by_file_;  // the first name of each file
};

}  // namespace

bool zone_file_name(std::string_view name) {
  return !name.empty() && name[0] != '+' && name.find('.') == std::string_view::npos &&
         name != "leapseconds" && name != "SECURITY";
}

std::string read_zone_file(int fd, kav_zone& zone) {
  std::string bytes;
  if (const int error = read_at_most(fd, zone_file_bound, bytes); error != 0)
    return "cannot be read: " + error_words(error);
  if (bytes.size() > zone_file_bound)
    return "is not a zone file: it is larger than " + size_words(zone_file_bound);
  kav_zone_read read = read_zone(bytes);
  if (!read.problem.empty()) return "is not a zone file: " + read.problem;
  zone = std::move(read.zone);
  return {};
}

kav_zone_tree read_zone_tree(int zoneinfo, const std::string& path,
                             const std::vector<std::string>& only) {
  return kav_tree_reader(zoneinfo, path).read(only);
}

}  // namespace kav
