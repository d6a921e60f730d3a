#include "kavdata/stage.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <unistd.h>

#include "fs/paths.h"
#include "kavdata/check.h"
#include "kavdata/device.h"
#include "kavdata/failure.h"
#include "kavdata/lock.h"
#include "kavdata/staging.h"
#include "kavdata/tree.h"
#include "kavdata/words.h"

namespace kav {
namespace {

// A copy in the making, deleted unless it is handed on.
class kav_staging_copy {
 public:
  explicit kav_staging_copy(const std::string& name)
      : path_(paths::update_parent + (staging::copy_prefix + name) + "-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) fail("cannot write " + path_, errno);
  }
  kav_staging_copy(const kav_staging_copy&) = delete;
  kav_staging_copy& operator=(const kav_staging_copy&) = delete;
  ~kav_staging_copy() {
    if (path_.empty()) return;
    try {
      remove_tree(path_);
    } catch (const kav_failure&) {
      // A leftover, which the next stage or clean deletes.
    }
  }

  const std::string& path() const { return path_; }
  void handed_on() { path_.clear(); }

 private:
  std::string path_;
};

// Deletes what an interrupted stage left: copies, and tz_latest's new link.
void remove_leftovers() {
  for (const std::string& name : directory_names(paths::update_parent))
    if (name.rfind(staging::copy_prefix, 0) == 0) remove_tree(paths::update_parent + name);
  if (::unlink(staging::next_latest) != 0 && errno != ENOENT)
    fail(std::string("cannot delete ") + staging::next_latest, errno);
}

// Refuses to replace what the links use: the start would lose its data.
void refuse_if_used(const std::string& name) {
  if (data_set_name(link_content(paths::zoneinfo_link)) == name)
    throw kav_failure(escaped(name) + " is in use and differs: it cannot be replaced");
  if (data_set_name(link_content(paths::icutz_link)) == name)
    throw kav_failure(escaped(name) + " is named by " + paths::icutz_link +
                      " and differs: it cannot be replaced");
}

// Puts the whole copy in place of `root`, atomically where the file system
// can swap two names; the replaced data is left at the copy's name.
void put_in_place(kav_staging_copy& copy, const std::string& root, bool replacing) {
  const char* const from = copy.path().c_str();
  if (!replacing) {
    if (::rename(from, root.c_str()) != 0) fail("cannot write " + root, errno);
    copy.handed_on();
  } else if (::renameat2(AT_FDCWD, from, AT_FDCWD, root.c_str(), RENAME_EXCHANGE) != 0) {
    if (errno != EINVAL) fail("cannot write " + root, errno);
    // No swap here: move the old data aside under a name that is no version.
    const std::string aside = copy.path() + "-old";
    if (::rename(root.c_str(), aside.c_str()) != 0 || ::rename(from, root.c_str()) != 0)
      fail("cannot write " + root, errno);
    copy.handed_on();
    remove_tree(aside);
  }
  sync_directory(paths::update_parent);
}

// Makes tz_latest name `root`: a new link under another name, renamed over.
void point_latest_at(const std::string& root) {
  if (::symlink(root.c_str(), staging::next_latest) != 0)
    fail(std::string("cannot write ") + staging::next_latest, errno);
  if (::rename(staging::next_latest, paths::latest_link) != 0) {
    const int error = errno;
    ::unlink(staging::next_latest);
    fail(std::string("cannot write ") + paths::latest_link, error);
  }
  sync_directory(paths::timezone_dir);
}

// Says every reason but the last, which ends the command.
[[noreturn]] void refuse(const kav_check& check) {
  for (std::size_t i = 0; i + 1 < check.reasons.size(); ++i)
    std::fprintf(stderr, "%s: stage: %s\n", program_invocation_short_name,
                 check.reasons[i].c_str());
  throw kav_failure(check.reasons.back());
}

void stage(const std::string& directory, const std::string& as) {
  const kav_lock lock = lock_for_change();
  remove_leftovers();
  const kav_check layout = check_layout(directory, as);
  if (!layout.reasons.empty()) refuse(layout);
  const std::string& name = layout.version_string;
  const std::string root = paths::update_parent + name;
  const kav_entry existing = examine(root);
  const bool staged = (existing.type == kav_entry::directory ||
                       existing.type == kav_entry::empty_directory) &&
                      same_staged(layout.directory, root);
  if (staged && link_content(paths::latest_link) == root) {
    std::printf("already staged: %s; tz_latest named it already\n", escaped(root).c_str());
    return;
  }
  // The copy is judged, not the source: its files are readable by everyone.
  std::optional<kav_staging_copy> copy;
  std::uint64_t size = 0;
  if (!staged) {
    if (existing.type != kav_entry::absent) refuse_if_used(name);
    copy.emplace(name);
    size = copy_staged(layout.directory, copy->path());
  }
  const kav_check verdict = check_data_set(copy ? copy->path() : root, name);
  if (!verdict.reasons.empty()) refuse(verdict);
  if (copy) put_in_place(*copy, root, existing.type != kav_entry::absent);
  point_latest_at(root);
  if (staged)
    std::printf("already staged: %s; tz_latest names it now\n", escaped(root).c_str());
  else
    std::printf("%s %s (%s); tz_latest names it now\n",
                existing.type == kav_entry::absent ? "staged" : "replaced", escaped(root).c_str(),
                size_words(size).c_str());
}

}  // namespace

int stage_data_set(const std::string& directory, const std::string& as) {
  try {
    stage(directory, as);
    return 0;
  } catch (const kav_failure& failure) {
    std::fprintf(stderr, "%s: stage: %s\n", program_invocation_short_name, failure.what());
    return 1;
  }
}

}  // namespace kav
