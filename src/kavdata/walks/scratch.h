#pragma once

#include <string>

#include "fs/unique_fd.h"

namespace kav {

// A private directory under $TMPDIR, else /tmp, where `check` unpacks an
// archive and `pack` copies a data set; deleted with what it holds when this
// goes.
class kav_scratch {
 public:
  // Makes "kavdata-COMMAND-XXXXXX" (0700) and opens it. Throws kav_failure.
  explicit kav_scratch(const char* command);
  kav_scratch(const kav_scratch&) = delete;
  kav_scratch& operator=(const kav_scratch&) = delete;
  // Deletes it; says on standard error what it could not delete.
  ~kav_scratch();

  const std::string& path() const { return path_; }
  int fd() const { return fd_.get(); }

 private:
  const char* command_;
  std::string path_;
  unique_fd parent_{-1};
  unique_fd fd_{-1};
};

}  // namespace kav
