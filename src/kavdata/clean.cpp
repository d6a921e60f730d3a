#include "kavdata/clean.h"

#include <cerrno>
#include <cstdio>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "dataset/update_root.h"
#include "fs/paths.h"
#include "kavdata/device.h"
#include "kavdata/failure.h"
#include "kavdata/lock.h"
#include "kavdata/staging.h"
#include "kavdata/tree.h"
#include "kavdata/words.h"

namespace kav {
namespace {

bool leftover(const std::string& name) {
  return name.rfind(staging::copy_prefix, 0) == 0 || name.rfind(staging::deleting_prefix, 0) == 0;
}

// The directory under /var/db/timezone/tz/ that the link at `path` names, or
// none for an absent link that may be absent; throws where what the link
// names cannot be known, as nothing may be deleted then.
std::string named_by(const char* path, bool may_be_absent) {
  const kav_entry link = examine(path);
  if (link.type == kav_entry::absent && may_be_absent) return {};
  const auto unknown = [&](const std::string& why) {
    return kav_failure("nothing deleted: " + std::string(path) + " " + why);
  };
  if (link.type != kav_entry::link)
    throw unknown(link.type == kav_entry::absent ? "is missing" : "is not a link");
  if (path == std::string(paths::zoneinfo_link) && link.target == paths::system_zoneinfo) return {};
  const std::string name = data_set_name(link.target);
  if (name.empty() || name == "." || name == "..")
    throw unknown("names " + escaped(link.target) + ", not a data set");
  struct stat status;
  if (::lstat((paths::update_parent + name).c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
    throw unknown("names " + escaped(link.target) + ", which is not a directory");
  return name;
}

std::uint64_t remove_and_tell(const std::string& name, const std::string& path) {
  const std::uint64_t size = remove_tree(path);
  std::printf("deleted %s (%s)\n", escaped(name).c_str(), size_words(size).c_str());
  return size;
}

void clean() {
  const kav_lock lock = lock_for_change();
  const std::set<std::string> kept = {named_by(paths::zoneinfo_link, false),
                                      named_by(paths::icutz_link, true),
                                      named_by(paths::latest_link, true)};
  std::vector<std::string> out_of_use;
  for (const std::string& name : directory_names(paths::update_parent)) {
    struct stat status;
    if (kept.count(name) == 0 && ::lstat((paths::update_parent + name).c_str(), &status) == 0 &&
        S_ISDIR(status.st_mode))
      out_of_use.push_back(name);
  }
  // Leftovers of interrupted commands first, so that no rename below meets
  // one; then each data set goes out of its version name before it is
  // deleted, so that none is ever half deleted under that name.
  std::uint64_t freed = 0;
  for (const std::string& name : out_of_use)
    if (leftover(name)) freed += remove_and_tell(name, paths::update_parent + name);
  for (const std::string& name : out_of_use) {
    const std::string path = paths::update_parent + name;
    if (!leftover(name) &&
        ::rename(path.c_str(), (paths::update_parent + (staging::deleting_prefix + name)).c_str()) != 0)
      fail("cannot rename " + path, errno);
  }
  sync_directory(paths::update_parent);
  for (const std::string& name : out_of_use)
    if (!leftover(name))
      freed += remove_and_tell(name, paths::update_parent + (staging::deleting_prefix + name));
  for (const char* path : {staging::next_latest, paths::needs_cleanup})
    if (::unlink(path) != 0 && errno != ENOENT) fail(std::string("cannot delete ") + path, errno);
  std::printf("freed %s\n", size_words(freed).c_str());
}

}  // namespace

int clean_data_sets() {
  try {
    clean();
    return 0;
  } catch (const kav_failure& failure) {
    std::fprintf(stderr, "%s: clean: %s\n", program_invocation_short_name, failure.what());
    return 1;
  }
}

}  // namespace kav
