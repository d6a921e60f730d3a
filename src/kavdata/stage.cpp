#include "kavdata/stage.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/paths.h"
#include "fs/unique_fd.h"
#include "kavdata/archive.h"
#include "kavdata/check.h"
#include "kavdata/device.h"
#include "kavdata/failure.h"
#include "kavdata/lock.h"
#include "kavdata/source.h"
#include "kavdata/staging.h"
#include "kavdata/tree.h"
#include "kavdata/trust.h"
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

// Judges the copy (none when `root` holds the data set already), puts it in
// place of `existing` and points tz_latest at it.
void finish(std::optional<kav_staging_copy>& copy, const std::string& name,
            const kav_entry& existing, std::uint64_t size, const kav_keys& keys) {
  const std::string root = paths::update_parent + name;
  const kav_check verdict = check_data_set(copy ? copy->path() : root, name);
  if (!verdict.reasons.empty()) refuse(verdict);
  if (!keys.required())
    std::fprintf(stderr, "%s: stage: %s\n", program_invocation_short_name, no_keys_words);
  if (copy) put_in_place(*copy, root, existing.type != kav_entry::absent);
  point_latest_at(root);
  if (!copy)
    std::printf("already staged: %s; tz_latest names it now\n", escaped(root).c_str());
  else
    std::printf("%s %s (%s); tz_latest names it now\n",
                existing.type == kav_entry::absent ? "staged" : "replaced", escaped(root).c_str(),
                size_words(size).c_str());
}

// Whether `root` holds a whole data set that `staged` would be copied as.
bool staged_already(const kav_entry& existing, const std::string& source, const std::string& root) {
  return (existing.type == kav_entry::directory || existing.type == kav_entry::empty_directory) &&
         same_staged(source, root);
}

void stage_directory(const std::string& directory, const std::string& as, const kav_keys& keys) {
  if (keys.required()) throw kav_failure(unsigned_directory_words(directory));
  const kav_check layout = check_layout(directory, as);
  if (!layout.reasons.empty()) refuse(layout);
  const std::string& name = layout.version_string;
  const std::string root = paths::update_parent + name;
  const kav_entry existing = examine(root);
  const bool staged = staged_already(existing, layout.directory, root);
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
  finish(copy, name, existing, size, keys);
}

// Fills the empty staging copy `copy_dir_fd` from the archive read from
// `input_fd`, and makes it durable; the copy's own directory stays closed to
// others. Returns what the archive held and its digest.
kav_unpacked fill_staging_copy_from_archive(int input_fd, int copy_dir_fd) {
  kav_unpacked unpacked = unpack_archive(input_fd, copy_dir_fd);
  if (::syncfs(copy_dir_fd) != 0) fail("cannot write the staging copy", errno);
  return unpacked;
}

// Stages the archive `file` ("-": standard input): unpacked straight into
// the copy, then its signature checked, then the copy judged as a directory's.
void stage_archive(const std::string& file, const std::string& as, const std::string& signature,
                   const kav_keys& keys) {
  if (!as.empty()) require_version_string(as);
  const std::optional<std::string> signed_by = signature_for(file, signature);
  if (keys.required() && !signed_by)
    throw kav_failure(judge_signature(signed_by, {}, keys).words);
  const unique_fd input(open_source(file));
  std::optional<kav_staging_copy> copy;
  copy.emplace("archive");
  kav_unpacked unpacked;
  {
    const unique_fd copy_fd(::open(copy->path().c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!copy_fd.valid()) fail("cannot write " + escaped(copy->path()), errno);
    unpacked = fill_staging_copy_from_archive(input.get(), copy_fd.get());
    const kav_signature_verdict verdict = judge_signature(signed_by, unpacked.digest, keys);
    if (!verdict.good) throw kav_failure(verdict.words);
  }
  const std::string name = as.empty() ? unpacked.top : as;
  const std::string root = paths::update_parent + name;
  const kav_entry existing = examine(root);
  if (staged_already(existing, copy->path(), root)) {
    copy.reset();
    if (link_content(paths::latest_link) == root)
      return (void)std::printf("already staged: %s; tz_latest named it already\n",
                               escaped(root).c_str());
  } else if (existing.type != kav_entry::absent) {
    refuse_if_used(name);
  }
  // Open to others only once whole; finish judges it first.
  if (copy && ::chmod(copy->path().c_str(), 0755) != 0)
    fail("cannot write " + escaped(copy->path()), errno);
  finish(copy, name, existing, unpacked.bytes, keys);
}

void stage(const std::string& source, const std::string& as, const std::string& signature) {
  const kav_lock lock = lock_for_change();
  remove_leftovers();
  const kav_keys keys = trusted_keys();
  struct stat status;
  if (source == "-" || (::stat(source.c_str(), &status) == 0 && !S_ISDIR(status.st_mode)))
    stage_archive(source, as, signature, keys);
  else
    stage_directory(source, as, keys);
}

}  // namespace

int stage_data_set(const std::string& source, const std::string& as, const std::string& signature) {
  try {
    stage(source, as, signature);
    return 0;
  } catch (const kav_failure& failure) {
    std::fprintf(stderr, "%s: stage: %s\n", program_invocation_short_name, failure.what());
    return 1;
  }
}

}  // namespace kav
