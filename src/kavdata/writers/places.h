#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "fs/unique_fd.h"

// The directories that stage, latest and clean change, held open: every name in
// them is then looked up by descriptor.
namespace kav {

struct kav_places {
  unique_fd timezone;  // /var/db/timezone
  unique_fd updates;   // /var/db/timezone/tz
};

// Opens both, never through a link. Throws kav_failure.
kav_places open_places();

// Flushes the entries of the directory open at `fd` (`path` in messages) to
// disk. Throws kav_failure.
void sync_directory(int fd, const char* path);

// A leftover of an interrupted command: deleted, put back, or left with why.
struct kav_leftover {
  std::string name;
  std::uint64_t bytes = 0;
  std::string failure;  // empty when it went
};

// Whether `name`, in /var/db/timezone/tz/, is one that only an interrupted
// command leaves.
bool leftover_name(const std::string& name);

// Settles what interrupted commands left in /var/db/timezone/tz/: a data set
// that a replacement moved aside goes back where its name is free, and is
// deleted where its replacement took the name; copies, data sets being
// deleted and the temporary tz_latest link are deleted. Returns what it
// deleted, or could not delete or put back.
std::vector<kav_leftover> settle_leftovers(const kav_places& places);

}  // namespace kav
