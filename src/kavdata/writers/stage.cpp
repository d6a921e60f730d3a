#include "kavdata/writers/stage.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/paths.h"
#include "kavdata/archives/archive.h"
#include "kavdata/archives/spool.h"
#include "kavdata/archives/trust.h"
#include "kavdata/device/device.h"
#include "kavdata/device/version_name.h"
#include "kavdata/judgement/check.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/identity.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/tree_copy.h"
#include "kavdata/walks/tree_remove.h"
#include "kavdata/walks/words.h"
#include "kavdata/writers/change.h"
#include "kavdata/writers/downgrade.h"
#include "kavdata/writers/latest_link.h"
#include "kavdata/writers/staging.h"

namespace kav {
namespace {

// A copy in the making under a name that is no version, closed to others
// until it is judged. After a replacement, its name holds the data replaced.
class kav_staging_copy {
 public:
  kav_staging_copy(const kav_places& places, const std::string& hint) : places_(places) {
    std::string path = paths::update_parent + (staging::copy_prefix + hint) + "-XXXXXX";
    if (::mkdtemp(path.data()) == nullptr) fail("cannot write " + escaped(path), errno);
    name_ = path.substr(std::string_view(paths::update_parent).size());
  }

  // Opens the copy and makes it root's alone, as a directory that is made
  // in a directory of another group may not be.
  void seal() {
    fd_ = unique_fd(open_directory_at(places_.updates.get(), name_.c_str()));
    if (!fd_.valid() || ::fchown(fd_.get(), 0, 0) != 0 || ::fchmod(fd_.get(), 0700) != 0)
      fail("cannot write " + escaped(path()), errno);
  }

  const std::string& name() const { return name_; }
  std::string path() const { return paths::update_parent + name_; }
  int fd() const { return fd_.get(); }
  // The copy now stands under the version's name; `aside` holds what it
  // replaced, if anything.
  void moved(const std::string& aside) { name_ = aside; }

  // Deletes what stands under the copy's name; a line naming what is left
  // behind, or empty.
  std::string remove() {
    if (name_.empty()) return {};
    try {
      remove_tree_at(places_.updates.get(), name_, path());
      name_.clear();
      return {};
    } catch (const kav_failure& failure) {
      return "left " + escaped(path()) + " behind (" + failure.what() +
             "); the next stage, latest or clean deletes it";
    }
  }

 private:
  const kav_places& places_;
  std::string name_;
  unique_fd fd_{-1};
};

// The data set in place under its version's name, and how to take it back.
class kav_placement {
 public:
  kav_placement(const kav_places& places, kav_staging_copy& copy, const std::string& name)
      : places_(places), copy_(copy), name_(name), staging_name_(copy.name()) {}

  // Renames the copy to `name`; swaps it with what stands there, atomically
  // where the file system can swap two names.
  void put(bool replacing) {
    const int updates = places_.updates.get();
    const char* const copy = copy_.name().c_str();
    if (!replacing) {
      if (::renameat(updates, copy, updates, name_.c_str()) != 0) cannot(errno);
      how_ = renamed;
    } else if (::renameat2(updates, copy, updates, name_.c_str(), RENAME_EXCHANGE) == 0) {
      how_ = exchanged;
    } else {
      if (errno != EINVAL) cannot(errno);
      aside_ = staging::replaced_prefix + name_;
      if (::renameat(updates, name_.c_str(), updates, aside_.c_str()) != 0) cannot(errno);
      if (::renameat(updates, copy, updates, name_.c_str()) != 0) {
        const int error = errno;
        ::renameat(updates, aside_.c_str(), updates, name_.c_str());
        cannot(error);
      }
      how_ = moved_aside;
    }
    copy_.moved(how_ == renamed ? std::string() : how_ == exchanged ? copy_.name() : aside_);
  }

  // Puts back what stood under `name`; the copy is under its own name again.
  std::string undo() {
    const int updates = places_.updates.get();
    const char* const copy = staging_name_.c_str();
    bool undone = false;
    if (how_ == renamed) {
      undone = ::renameat(updates, name_.c_str(), updates, copy) == 0;
    } else if (how_ == exchanged) {
      undone = ::renameat2(updates, copy, updates, name_.c_str(), RENAME_EXCHANGE) == 0;
    } else {
      undone = ::renameat(updates, name_.c_str(), updates, copy) == 0 &&
               ::renameat(updates, aside_.c_str(), updates, name_.c_str()) == 0;
    }
    if (undone) copy_.moved(staging_name_);
    return undone ? std::string() : "; " + escaped(paths::update_parent + name_) +
                                        " stays as staged: " + error_words(errno);
  }

 private:
  [[noreturn]] void cannot(int error) const {
    fail("cannot write " + escaped(paths::update_parent + name_), error);
  }

  enum { none, renamed, exchanged, moved_aside } how_ = none;
  const kav_places& places_;
  kav_staging_copy& copy_;
  const std::string name_;
  const std::string staging_name_;
  std::string aside_;
};

// Refuses to replace what the links use: the start would lose its data.
void refuse_if_used(const std::string& name) {
  if (data_set_name(link_content(paths::zoneinfo_link)) == name)
    throw kav_failure(escaped(name) + " is in use and differs: it cannot be replaced");
  if (data_set_name(link_content(paths::icutz_link)) == name)
    throw kav_failure(escaped(name) + " is named by " + paths::icutz_link +
                      " and differs: it cannot be replaced");
}

// Says every reason but the last, which ends the command.
[[noreturn]] void refuse(const std::vector<std::string>& reasons) {
  for (std::size_t i = 0; i + 1 < reasons.size(); ++i) tell("stage", reasons[i]);
  throw kav_failure(reasons.back());
}

// The directory source, reached through no link that anyone but root could
// have made, and read from then on as its owner.
struct kav_directory_source {
  std::string path;     // as given, for messages
  std::string name;     // the version it is staged as
  unique_fd fd{-1};
  struct stat status {};
};

kav_directory_source open_directory_source(const std::string& path, const std::string& as) {
  kav_directory_source source{path, as};
  std::string name;
  source.fd = unique_fd(open_given(path, O_RDONLY | O_DIRECTORY | O_NONBLOCK, &name));
  if (!source.fd.valid()) {
    if (errno == ENOENT) throw kav_failure(escaped(path) + " does not exist");
    if (errno == ENOTDIR) throw kav_failure(escaped(path) + " is not a directory");
    fail("cannot read " + escaped(path), errno);
  }
  if (::fstat(source.fd.get(), &source.status) != 0) fail("cannot read " + escaped(path), errno);
  char resolved[PATH_MAX];
  if (as.empty() && name.empty() && ::realpath(path.c_str(), resolved) != nullptr)
    name = std::strrchr(resolved, '/') + 1;
  if (as.empty()) source.name = name;
  const std::string problem = version_name_problem(source.name);
  if (!problem.empty()) throw kav_failure(problem);
  return source;
}

// The two directories a data set holds, looked for as its provider.
void check_top(const kav_provider& provider, const kav_directory_source& source) {
  for (const char* name : {"zoneinfo", "icutz"}) {
    struct stat status;
    const kav_provider::kav_acting as_provider(provider);
    if (::fstatat(source.fd.get(), name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(status.st_mode))
      throw kav_failure(std::string("it has no ") + name + "/ directory");
  }
}

// What stage prints when it is done.
std::string done_line(const char* what, const std::string& root, std::uint64_t bytes) {
  return std::string(what) + " " + escaped(root) + " (" + size_words(bytes) + "); tz_latest names it now";
}

// Judges the copy and puts it in place as `name`, unless the very same data
// set is there, and points tz_latest at it, durably: the copy before its
// rename, the rename before tz_latest moves, tz_latest before the end. Until
// tz_latest moves, a failure takes back all that was done; after it, the job
// is done and the failure says so.
void install(const kav_places& places, kav_staging_copy& copy, const std::string& name,
             std::uint64_t bytes, const kav_keys& keys, bool replace_newer) {
  const int updates = places.updates.get();
  const std::string root = paths::update_parent + name;
  struct stat existing;
  const bool replacing = ::fstatat(updates, name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0;
  if (!replacing && errno != ENOENT) fail("cannot read " + escaped(root), errno);
  bool staged = false;
  if (replacing && S_ISDIR(existing.st_mode)) {
    const unique_fd in_place(open_directory_at(updates, name.c_str()));
    staged = in_place.valid() && same_tree(copy.fd(), in_place.get());
  }
  const bool named = link_content(paths::latest_link) == root;
  if (replacing && !staged) refuse_if_used(name);
  if (!named && !replace_newer)
    if (const std::string downgrade = downgrade_words(name); !downgrade.empty())
      throw kav_failure(downgrade);
  if (!(staged && named)) {
    // The copy is judged, not the source: nobody else can change it.
    const kav_check verdict = check_data_set(copy.path(), name);
    if (!verdict.reasons.empty()) refuse(verdict.reasons);
    if (!keys.required()) tell("stage", no_keys_words);
  }
  if (staged) {
    if (!named) point_latest_at(places, root);
    std::printf("already staged: %s; tz_latest %s\n", escaped(root).c_str(),
                named ? "named it already" : "names it now");
    return;
  }
  if (::fchmod(copy.fd(), 0755) != 0 || ::syncfs(copy.fd()) != 0)
    fail("cannot write " + escaped(copy.path()), errno);
  make_next_latest(places, root);
  try {
    kav_placement placement(places, copy, name);
    placement.put(replacing);
    try {
      sync_directory(updates, paths::update_parent);
      move_latest(places);
    } catch (const kav_failure& failure) {
      throw kav_failure(failure.what() + placement.undo());
    }
  } catch (const kav_failure& failure) {
    drop_next_latest(places, failure);
  }
  try {
    sync_directory(places.timezone.get(), paths::timezone_dir);
  } catch (const kav_failure& failure) {
    throw kav_failure(escaped(root) + " is staged and tz_latest names it, but " + failure.what());
  }
  std::printf("%s\n", done_line(replacing ? "replaced" : "staged", root, bytes).c_str());
}

// Copies the directory source into `copy`; returns the version it is
// staged as and the bytes of its files.
std::pair<std::string, std::uint64_t> fill_from_directory(
    const kav_places& places, const std::string& directory, const std::string& as,
    std::optional<kav_staging_copy>& copy) {
  const kav_directory_source source = open_directory_source(directory, as);
  const kav_provider provider(source.status, escaped(directory).c_str());
  check_top(provider, source);
  copy.emplace(places, source.name);
  copy->seal();
  kav_copy_limits limits;
  limits.free_space = usable_space(places.updates.get());
  return {source.name,
          copy_tree(provider, source.fd.get(), directory, copy->fd(), copy->path(), limits)};
}

// Unpacks the archive `file` ("-": standard input) into `copy`; while keys
// are trusted, only once its signature is found good, so that nothing else
// is parsed: it is first held whole beside the copy. Returns the version it
// is staged as and the bytes of its files.
std::pair<std::string, std::uint64_t> fill_from_archive(
    const kav_places& places, const std::string& file, const std::string& as,
    const std::string& signature, const kav_keys& keys, std::optional<kav_staging_copy>& copy) {
  if (const std::string problem = version_name_problem(as, ""); !as.empty() && !problem.empty())
    throw kav_failure(problem);
  const std::optional<std::string> signed_by = signature_for(file, signature);
  if (keys.required() && !signed_by) throw kav_failure(judge_signature(signed_by, {}, keys).words);
  const unique_fd input(open_source(file));
  std::optional<kav_spool> spool;
  if (keys.required()) {
    spool.emplace(spool_archive(input.get(), places.updates.get(), paths::update_parent));
    const kav_signature_verdict verdict = judge_signature(signed_by, spool->digest, keys);
    if (!verdict.good) throw kav_failure(verdict.words);
  }
  copy.emplace(places, "archive");
  copy->seal();
  const kav_unpacked unpacked =
      spool ? unpack_archive(spool->fd.get(), copy->fd(), spool->free_space)
            : unpack_archive(input.get(), copy->fd());
  return {as.empty() ? unpacked.top : as, unpacked.bytes};
}

// Fills a copy from the source, judges it and puts it in place; `copy` is
// left to the caller to delete, whatever happens.
void stage(const kav_places& places, const std::string& source, const std::string& as,
           const std::string& signature, bool replace_newer,
           std::optional<kav_staging_copy>& copy) {
  // Modes are given exactly, whatever the caller's umask.
  ::umask(0);
  const kav_keys keys = trusted_keys();
  struct stat status;
  const bool archive =
      source == "-" || (::stat(source.c_str(), &status) == 0 && !S_ISDIR(status.st_mode));
  if (!archive && keys.required()) throw kav_failure(unsigned_directory_words(source));
  const auto [name, bytes] = archive
                                 ? fill_from_archive(places, source, as, signature, keys, copy)
                                 : fill_from_directory(places, source, as, copy);
  install(places, *copy, name, bytes, keys, replace_newer);
}

}  // namespace

int stage_data_set(const std::string& source, const std::string& as, const std::string& signature,
                   bool replace_newer) {
  // Declared in this order, the copy goes first, under the lock.
  std::optional<kav_change> change;
  std::optional<kav_staging_copy> copy;
  int status = 0;
  try {
    change.emplace(begin_change());
    for (const kav_leftover& leftover : change->leftovers)
      if (!leftover.failure.empty()) tell("stage", leftover.failure);
    stage(change->places, source, as, signature, replace_newer, copy);
  } catch (const kav_failure& failure) {
    tell("stage", failure.what());
    status = 1;
  }
  const std::string left = copy ? copy->remove() : std::string();
  if (!left.empty()) {
    tell("stage", left);
    status = 1;
  }
  return status;
}

}  // namespace kav
