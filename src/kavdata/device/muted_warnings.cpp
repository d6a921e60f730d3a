#include "kavdata/device/muted_warnings.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace kav {

kav_muted_warnings::kav_muted_warnings() : saved_(::dup(STDERR_FILENO)) {
  const int unwritable = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (saved_ >= 0 && unwritable >= 0) ::dup2(unwritable, STDERR_FILENO);
  if (unwritable >= 0) ::close(unwritable);
}

kav_muted_warnings::~kav_muted_warnings() {
  if (saved_ < 0) return;
  ::dup2(saved_, STDERR_FILENO);
  ::close(saved_);
  // The failed writes marked the stream; later messages must still show.
  std::clearerr(stderr);
}

}  // namespace kav
