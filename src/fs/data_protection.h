#pragma once

#include <sys/types.h>

// The platform's data-protection interface. Devices with protection classes
// provide it natively; each other platform supplies one implementation file.
namespace kav {

// Opens or creates `path` as open(2) does with `flags` and `mode`, giving a
// newly created file `protection_class`. Returns a descriptor, or a negative
// value with errno set.
int open_protected(const char* path, int flags, int protection_class,
                   int dp_flags, mode_t mode);

// Sets the protection class of the open directory `fd` (the platform's fcntl
// command 64). Returns 0 on success, -1 with errno set on failure.
int set_directory_protection_class(int fd, int protection_class);

}  // namespace kav
