#include "kavdata/writers/latest_link.h"

#include <cerrno>
#include <unistd.h>

#include "fs/paths.h"
#include "kavdata/walks/words.h"
#include "kavdata/writers/staging.h"

namespace kav {

void make_next_latest(const kav_places& places, const std::string& root) {
  if (::symlinkat(root.c_str(), places.timezone.get(), staging::next_latest_name) != 0)
    fail("cannot write " + std::string(staging::next_latest), errno);
}

void move_latest(const kav_places& places) {
  if (::renameat(places.timezone.get(), staging::next_latest_name, places.timezone.get(),
                 staging::latest_name) != 0)
    fail("cannot write " + std::string(paths::latest_link), errno);
}

void drop_next_latest(const kav_places& places, const kav_failure& failure) {
  if (::unlinkat(places.timezone.get(), staging::next_latest_name, 0) == 0 || errno == ENOENT)
    throw failure;
  throw kav_failure(failure.what() + std::string("; left ") + staging::next_latest +
                    " behind: " + error_words(errno));
}

void point_latest_at(const kav_places& places, const std::string& root) {
  make_next_latest(places, root);
  try {
    move_latest(places);
  } catch (const kav_failure& failure) {
    drop_next_latest(places, failure);
  }
  sync_directory(places.timezone.get(), paths::timezone_dir);
}

}  // namespace kav
