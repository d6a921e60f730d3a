#include "kavdata/building/settle.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

#include "fs/unique_fd.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/words.h"

namespace kav {

void settle_tree(int top, const std::string& shown, std::int64_t time) {
  const timespec times[2] = {{static_cast<time_t>(time), 0}, {static_cast<time_t>(time), 0}};
  for (const std::string& name : names_in(top, shown)) {
    const std::string path = shown + "/" + name;
    struct stat status;
    if (::fstatat(top, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
      fail("cannot read " + escaped(path), errno);
    if (S_ISDIR(status.st_mode)) {
      const unique_fd directory(open_directory_at(top, name.c_str()));
      if (!directory.valid()) fail("cannot read " + escaped(path), errno);
      settle_tree(directory.get(), path, time);
      continue;
    }
    if (S_ISREG(status.st_mode) && status.st_nlink > 1)
      throw kav_failure(escaped(path) + " has " + std::to_string(status.st_nlink) +
                        " names: a link that no Link line of the input names");
    if ((S_ISREG(status.st_mode) && (status.st_mode & 07777) != 0644 &&
         ::fchmodat(top, name.c_str(), 0644, 0) != 0) ||
        ::utimensat(top, name.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
      fail("cannot write " + escaped(path), errno);
  }
  if (::fchmod(top, 0755) != 0 || ::futimens(top, times) != 0)
    fail("cannot write " + escaped(shown), errno);
}

}  // namespace kav
