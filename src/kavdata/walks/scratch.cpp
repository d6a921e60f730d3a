#include "kavdata/walks/scratch.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>

#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/tree_remove.h"
#include "kavdata/walks/words.h"

namespace kav {

kav_scratch::kav_scratch(const char* command) : command_(command) {
  const char* const parent = std::getenv("TMPDIR");
  const std::string in = parent != nullptr && *parent != '\0' ? parent : "/tmp";
  path_ = in + "/kavdata-" + command + "-XXXXXX";
  if (::mkdtemp(path_.data()) == nullptr) {
    path_.clear();
    fail("cannot write in " + escaped(in), errno);
  }
  // Held from now on, so that the directory deleted is the one made.
  const std::size_t slash = path_.rfind('/');
  parent_ = unique_fd(::open(slash == 0 ? "/" : path_.substr(0, slash).c_str(),
                             O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (parent_.valid()) fd_ = unique_fd(open_directory_at(parent_.get(), path_.c_str() + slash + 1));
  if (!fd_.valid()) {
    const int error = errno;
    ::rmdir(path_.c_str());
    parent_ = unique_fd(-1);
    fail("cannot write " + escaped(path_), error);
  }
}

kav_scratch::~kav_scratch() {
  if (!parent_.valid()) return;
  fd_ = unique_fd(-1);
  try {
    remove_tree_at(parent_.get(), path_.substr(path_.rfind('/') + 1), path_);
  } catch (const kav_failure& failure) {
    tell(command_, failure.what());
  }
}

}  // namespace kav
