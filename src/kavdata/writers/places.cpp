#include "kavdata/writers/places.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "fs/paths.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/tree_remove.h"
#include "kavdata/walks/words.h"
#include "kavdata/writers/staging.h"

namespace kav {
namespace {

bool begins(std::string_view name, std::string_view prefix) {
  return name.substr(0, prefix.size()) == prefix;
}

// Puts a data set moved aside back under its name: true when it went back,
// false when that name is taken again, by what replaced it. Throws
// kav_failure when it cannot tell or cannot put it back: then it stays.
bool put_back(const kav_places& places, const std::string& name) {
  const int updates = places.updates.get();
  const std::string original = name.substr(std::string_view(staging::replaced_prefix).size());
  if (::faccessat(updates, original.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) return false;
  if (errno != ENOENT) fail("cannot read " + escaped(paths::update_parent + original), errno);
  if (::renameat(updates, name.c_str(), updates, original.c_str()) != 0)
    fail("cannot put back " + escaped(paths::update_parent + name), errno);
  return true;
}

}  // namespace

bool leftover_name(const std::string& name) {
  return begins(name, staging::copy_prefix) || begins(name, staging::deleting_prefix) ||
         begins(name, staging::replaced_prefix);
}

kav_places open_places() {
  const std::string timezone(paths::timezone_dir, std::string_view(paths::timezone_dir).size() - 1);
  kav_places places{unique_fd(::open(timezone.c_str(),
                                     O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)),
                    unique_fd(-1)};
  if (!places.timezone.valid()) fail("cannot use " + std::string(paths::timezone_dir), errno);
  places.updates = unique_fd(open_directory_at(places.timezone.get(), "tz"));
  if (!places.updates.valid()) fail("cannot use " + std::string(paths::update_parent), errno);
  return places;
}

void sync_directory(int fd, const char* path) {
  if (::fsync(fd) != 0) fail(std::string("cannot write ") + path, errno);
}

std::vector<kav_leftover> settle_leftovers(const kav_places& places) {
  std::vector<kav_leftover> found;
  for (const std::string& name : names_in(places.updates.get(), paths::update_parent)) {
    if (!leftover_name(name)) continue;
    kav_leftover leftover{name, 0, {}};
    try {
      if (begins(name, staging::replaced_prefix) && put_back(places, name)) continue;
      leftover.bytes = remove_tree_at(places.updates.get(), name, paths::update_parent + name);
    } catch (const kav_failure& failure) {
      leftover.failure = failure.what();
    }
    found.push_back(std::move(leftover));
  }
  if (::unlinkat(places.timezone.get(), staging::next_latest_name, 0) != 0 && errno != ENOENT)
    found.push_back({staging::next_latest_name, 0,
                     "cannot delete " + std::string(staging::next_latest) + ": " +
                         std::strerror(errno)});
  return found;
}

}  // namespace kav
