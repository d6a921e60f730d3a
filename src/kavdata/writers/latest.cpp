#include "kavdata/writers/latest.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/paths.h"
#include "kavdata/device/version_name.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/words.h"
#include "kavdata/writers/latest_link.h"
#include "kavdata/writers/lock.h"
#include "kavdata/writers/places.h"
#include "kavdata/writers/staging.h"

namespace kav {

int point_latest(const std::string& version) {
  try {
    const kav_lock lock = lock_for_change();
    const kav_places places = open_places();
    if (version == "none") {
      if (::unlinkat(places.timezone.get(), staging::latest_name, 0) != 0 && errno != ENOENT)
        fail("cannot delete " + std::string(paths::latest_link), errno);
      sync_directory(places.timezone.get(), paths::timezone_dir);
      std::printf("tz_latest names nothing now\n");
      return 0;
    }
    const std::string problem = version_name_problem(version);
    if (!problem.empty()) throw kav_failure(problem);
    const std::string root = paths::update_parent + version;
    struct stat status;
    if (::fstatat(places.updates.get(), version.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISDIR(status.st_mode))
      throw kav_failure(escaped(root) + " is no staged data set");
    point_latest_at(places, root);
    std::printf("tz_latest names %s now\n", escaped(root).c_str());
    return 0;
  } catch (const kav_failure& failure) {
    std::fprintf(stderr, "%s: latest: %s\n", program_invocation_short_name, failure.what());
    return 1;
  }
}

}  // namespace kav
