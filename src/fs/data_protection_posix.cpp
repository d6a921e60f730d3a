// Data protection for platforms without protection classes: files are opened
// exactly as open(2) opens them and directories keep their attributes. The
// fcntl command number 64 means something else, or nothing, here, so it is
// never issued.
#include "fs/data_protection.h"

#include <fcntl.h>

namespace kav {

int open_protected(const char* path, int flags, int /*protection_class*/,
                   int /*dp_flags*/, mode_t mode) {
  return ::open(path, flags, mode);
}

int set_directory_protection_class(int /*fd*/, int /*protection_class*/) {
  return 0;
}

}  // namespace kav
