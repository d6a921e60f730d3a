#include "kavdata/building/place.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include "kavdata/walks/failure.h"
#include "kavdata/walks/tree_remove.h"
#include "kavdata/walks/words.h"

namespace kav {

kav_build_place::kav_build_place(const std::string& parent) : parent_(parent) {
  std::string path = parent + "/.kavdata-build-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) fail("cannot write in " + escaped(parent), errno);
  path_ = path;
  fd_ = unique_fd(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd_.valid()) fail("cannot write in " + escaped(parent), errno);
}

kav_build_place::~kav_build_place() {
  const unique_fd parent(::open(parent_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  try {
    remove_tree_at(parent.get(), path_.substr(parent_.size() + 1), path_);
  } catch (const kav_failure& failure) {
    tell("build", failure.what());
  }
}

void kav_build_place::publish(const std::string& name, const std::string& output) const {
  int done = ::renameat2(fd_.get(), name.c_str(), AT_FDCWD, output.c_str(), RENAME_NOREPLACE);
  // A file system that cannot refuse to replace: an empty directory would be.
  struct stat status;
  if (done != 0 && errno == EINVAL && ::lstat(output.c_str(), &status) != 0 && errno == ENOENT)
    done = ::renameat(fd_.get(), name.c_str(), AT_FDCWD, output.c_str());
  if (done == 0) return;
  if (errno == EEXIST || errno == ENOTEMPTY)
    throw kav_failure(escaped(output) + " exists: build makes a new directory");
  fail("cannot make " + escaped(output), errno);
}

}  // namespace kav
