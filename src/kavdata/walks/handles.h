#pragma once

#include <deque>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "fs/unique_fd.h"

// Directories walked by descriptor: every name is looked up relative to its
// parent's open descriptor and never through a link, so that nothing swapped
// in while a tree is read or deleted leads out of it. Whole paths appear only
// in messages.
namespace kav {

// Opens the directory `name` in `parent` without following a link or
// blocking; -1 with errno otherwise (ENOTDIR or ELOOP for what is no
// directory).
int open_directory_at(int parent, const char* name);

// The names in the directory open at `directory`, but "." and "..", sorted
// byte for byte. Throws kav_failure naming `path` when the listing fails,
// also part-way.
std::vector<std::string> names_in(int directory, const std::string& path);

// Puts the parts of `path`, split at its slashes (empty ones too), in front
// of `parts`: a link's target spliced into the rest of a path.
void put_in_front(const std::string& path, std::deque<std::string>& parts);

// Whether `a` and `b` are the same file.
inline bool same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether the directory open at `fd` is where a file system is mounted
// (bind mounts on the same file system too).
bool mount_root(int fd);

// Called, when set, between judging an entry and opening it: tests make
// races happen there every time.
extern void (*between_judging_and_opening)(int directory, const char* name);

// Calls between_judging_and_opening when a test set it.
inline void race_point(int directory, const char* name) {
  if (between_judging_and_opening != nullptr) between_judging_and_opening(directory, name);
}

}  // namespace kav
