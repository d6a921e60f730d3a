#include "kavdata/writers/clean.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "fs/paths.h"
#include "kavdata/device/device.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/tree_remove.h"
#include "kavdata/walks/words.h"
#include "kavdata/writers/change.h"
#include "kavdata/writers/staging.h"

namespace kav {
namespace {

void deleted(const std::string& name, std::uint64_t bytes) {
  std::printf("deleted %s (%s)\n", escaped(name).c_str(), size_words(bytes).c_str());
}

// The directory under /var/db/timezone/tz/ that the link at `path` names, or
// none for an absent link that may be absent; throws where what the link
// names cannot be known, as nothing may be deleted then.
std::string named_by(const char* path, bool may_be_absent) {
  const kav_entry link = examine(path);
  if (link.type == kav_entry::absent && may_be_absent) return {};
  const auto unknown = [&](const std::string& why) {
    return kav_failure("nothing deleted: " + std::string(path) + " " + why);
  };
  if (link.type != kav_entry::link)
    throw unknown(link.type == kav_entry::absent ? "is missing" : "is not a link");
  if (path == std::string(paths::zoneinfo_link) && link.target == paths::system_zoneinfo) return {};
  const std::string name = data_set_name(link.target);
  if (name.empty() || name == "." || name == "..")
    throw unknown("names " + escaped(link.target) + ", not a data set");
  struct stat status;
  if (::lstat((paths::update_parent + name).c_str(), &status) == 0 && !S_ISDIR(status.st_mode))
    throw unknown("names " + escaped(link.target) + ", which is not a directory");
  return name;
}

// Whether an entry of /var/db/timezone/tz/ is a data set out of use: a
// directory that no link names, and no leftover. One that cannot be examined
// is said to be out of use and stays, with the marker.
bool out_of_use(const kav_places& places, const std::set<std::string>& kept,
                const std::string& name, bool& whole) {
  if (kept.count(name) != 0 || leftover_name(name)) return false;
  struct stat status;
  if (::fstatat(places.updates.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
    return S_ISDIR(status.st_mode);
  tell("clean",
       "cannot examine " + escaped(paths::update_parent + name) + ": " + error_words(errno));
  whole = false;
  return false;
}

// Deletes one data set: out of its version's name first, durably, so that
// none is ever half deleted under that name. False, having said why, when it
// stays.
bool delete_data_set(const kav_places& places, const std::string& name, std::uint64_t& freed) {
  const int updates = places.updates.get();
  const std::string aside = staging::deleting_prefix + name;
  try {
    if (::renameat(updates, name.c_str(), updates, aside.c_str()) != 0)
      fail("cannot rename " + escaped(paths::update_parent + name), errno);
    sync_directory(updates, paths::update_parent);
    const std::uint64_t bytes = remove_tree_at(updates, aside, paths::update_parent + aside);
    deleted(name, bytes);
    freed += bytes;
    return true;
  } catch (const kav_failure& failure) {
    tell("clean", failure.what());
    return false;
  }
}

bool clean() {
  // Leftovers of interrupted commands first, so that no rename below meets one.
  const kav_change change = begin_change();
  const kav_places& places = change.places;
  const std::set<std::string> kept = {named_by(paths::zoneinfo_link, false),
                                      named_by(paths::icutz_link, true),
                                      named_by(paths::latest_link, true)};
  std::uint64_t freed = 0;
  bool whole = true;
  for (const kav_leftover& leftover : change.leftovers) {
    if (leftover.failure.empty()) deleted(leftover.name, leftover.bytes);
    else tell("clean", leftover.failure);
    whole = whole && leftover.failure.empty();
    freed += leftover.bytes;
  }
  for (const std::string& name : names_in(places.updates.get(), paths::update_parent))
    if (out_of_use(places, kept, name, whole)) whole = delete_data_set(places, name, freed) && whole;
  // The deletions are durable before the marker that asked for them goes:
  // it goes only when nothing out of use is left.
  sync_directory(places.updates.get(), paths::update_parent);
  for (const char* marker : {staging::clean_request, paths::needs_cleanup})
    if (whole && ::unlink(marker) != 0 && errno != ENOENT)
      fail(std::string("cannot delete ") + marker, errno);
  std::printf("freed %s\n", size_words(freed).c_str());
  return whole;
}

}  // namespace

int clean_data_sets() {
  try {
    return clean() ? 0 : 1;
  } catch (const kav_failure& failure) {
    tell("clean", failure.what());
    return 1;
  }
}

}  // namespace kav
