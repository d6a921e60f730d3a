#pragma once

#include <string>

#include "fs/unique_fd.h"

namespace kav {

// Where a build works: a private directory beside the data set it makes, so
// that the data set appears whole, by one rename, or not at all; a killed
// build leaves only this directory, ".kavdata-build-XXXXXX".
class kav_build_place {
 public:
  // Makes the private directory in `parent`. Throws kav_failure.
  explicit kav_build_place(const std::string& parent);
  kav_build_place(const kav_build_place&) = delete;
  kav_build_place& operator=(const kav_build_place&) = delete;
  // Deletes the private directory with what remains in it.
  ~kav_build_place();

  const std::string& path() const { return path_; }
  int fd() const { return fd_.get(); }

  // Renames the directory `name` in it to `output`, which must not exist.
  // Throws kav_failure, saying so when `output` exists.
  void publish(const std::string& name, const std::string& output) const;

 private:
  std::string parent_, path_;
  unique_fd fd_{-1};
};

}  // namespace kav
