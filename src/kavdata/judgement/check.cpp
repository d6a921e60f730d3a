#include "kavdata/judgement/check.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "components/icu_data_file.h"
#include "components/kav_zoneinfo.h"
#include "fs/paths.h"
#include "fs/unique_fd.h"
#include "fs/walk.h"
#include "kavdata/device/device.h"
#include "kavdata/device/muted_warnings.h"
#include "kavdata/device/next_start.h"
#include "kavdata/device/version_name.h"
#include "kavdata/judgement/zone_tree.h"
#include "kavdata/walks/beneath.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/identity.h"
#include "kavdata/walks/limits.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

// Zone files whose faults are told; more are counted.
constexpr int zone_files_told = 3;

// How far "+VERSION" is read for its word, which is a few bytes long.
constexpr std::size_t version_word_bound = 4096;

// Opens a file of the data set to read it: never through a link, never
// waiting on a FIFO; -1 with errno, EINVAL for what is not a regular file.
int open_file(const char* path, struct stat& status) {
  const int fd = ::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return fd;
  const bool stated = ::fstat(fd, &status) == 0;
  if (stated && S_ISREG(status.st_mode)) return fd;
  const int error = stated ? EINVAL : errno;
  ::close(fd);
  errno = error;
  return -1;
}

// Why the zone file at `path` is not one, in words after its name; empty
// when it is one.
std::string zone_file_problem(const char* path) {
  struct stat status;
  const unique_fd fd(open_file(path, status));
  if (!fd.valid()) return "cannot be read: " + error_words(errno);
  kav_zone zone;
  return read_zone_file(fd.get(), zone);
}

// Whether root, owning a data set, would read in `status` a directory that
// another user may change: another owner, or a write bit for others or for a
// group other than root's.
bool not_roots_alone(const struct stat& status) {
  return status.st_uid != 0 || (status.st_mode & S_IWOTH) != 0 ||
         ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0);
}

// A name that looks meant for the ICU data file but is not "icutzTAG.dat".
bool almost_data_file_name(std::string name) {
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return name.find("icutz") != std::string::npos ||
         (name.size() >= 4 && name.compare(name.size() - 4, 4, ".dat") == 0);
}

// How much of a data set is judged.
enum class kav_depth { contents, whole };

// Keeps a walk whose top lies `above` levels below the data set's top within
// the levels a data set may have: check_tree names what lies deeper.
void stay_shallow(FTS* walk, FTSENT* entry, std::size_t above) {
  if (static_cast<std::size_t>(entry->fts_level) + above >= depth_limit)
    fts_set(walk, entry, FTS_SKIP);
}

}  // namespace

std::string astray_words(int error) {
  if (error == EXDEV) return " leads out of the data set: ";
  if (error == ELOOP) return " is a loop of links, or a chain of more than 40: ";
  if (error == ENOENT || error == ENOTDIR) return " leads to nothing in the data set: ";
  return " cannot be followed (" + error_words(error) + "): ";
}

namespace {

class kav_checker {
 public:
  // Judges the data set open at `top`, reached through the path `top_path`.
  kav_checker(std::string directory, int top, std::string top_path, std::string version_string,
              bool roots)
      : top_(std::move(top_path)), top_fd_(top), roots_(roots) {
    check_.directory = std::move(directory);
    check_.version_string = std::move(version_string);
  }

  kav_check run(kav_depth depth) {
    // Root reads nothing of a tree that another user can change under it.
    if (roots_ && shared_directory()) return std::move(check_);
    const bool named = check_name();
    const bool zoneinfo = has_directory("zoneinfo");
    const bool icutz = has_directory("icutz");
    check_tree();
    const bool version_explained = zoneinfo && named && !check_version_file();
    const bool icu_explained = icutz && !check_icu_directory();
    // What a link leads to is not read at all, unless every link leads into
    // the set.
    if (named && !linked_ && !astray_ && depth == kav_depth::whole)
      check_next_start(icu_explained, version_explained);
    return std::move(check_);
  }

 private:
  void reason(const std::string& text) { check_.reasons.push_back(text); }

  // The path of a walk entry below the data set's top.
  std::string below_top(const FTSENT& entry) const {
    return std::string(entry.fts_path).substr(top_.size() + 1);
  }

  bool check_name() {
    const std::string problem = version_name_problem(check_.version_string);
    if (!problem.empty()) reason(problem);
    return problem.empty();
  }

  // Whether the data set holds the directory `name` itself, not a link.
  bool has_directory(const char* name) {
    struct stat status;
    const bool found = ::lstat((top_ + "/" + name).c_str(), &status) == 0;
    if (found && S_ISDIR(status.st_mode)) return true;
    if (found && S_ISLNK(status.st_mode)) {
      linked_ = true;
      reason(std::string(name) + "/ is a link: only a directory counts");
    } else {
      reason(std::string("it has no ") + name + "/ directory");
    }
    return false;
  }

  // Links that lead astray, zone files that are not zone files, entries
  // that cannot be read or copied, trees too deep.
  void check_tree() {
    const walk_handle walk =
        open_walk(top_, FTS_COMFOLLOW | FTS_PHYSICAL | FTS_NOCHDIR, by_name);
    if (!walk) return reason("it cannot be read: " + error_words(errno));
    int not_zone_files = 0;
    while (FTSENT* entry = fts_read(walk.get())) {
      const std::string path = entry->fts_level == 0 ? "" : below_top(*entry);
      if (entry->fts_level > static_cast<short>(depth_limit)) {
        if (entry->fts_info != FTS_DP)
          reason(escaped(path) + " lies more than " + std::to_string(depth_limit) +
                 " levels below the top");
        fts_set(walk.get(), entry, FTS_SKIP);
        continue;
      }
      switch (entry->fts_info) {
        case FTS_SL:
        case FTS_SLNONE:
          check_link(path, entry->fts_path);
          break;
        case FTS_F: {
          if (path.compare(0, 9, "zoneinfo/") != 0 || !zone_file_name(entry->fts_name)) break;
          const std::string problem = zone_file_problem(entry->fts_path);
          const bool not_zone_file = problem.rfind("is not a zone file", 0) == 0;
          if (!problem.empty() && (!not_zone_file || ++not_zone_files <= zone_files_told))
            reason(escaped(path) + " " + problem);
          break;
        }
        case FTS_DNR:
        case FTS_ERR:
        case FTS_NS:
          reason((path.empty() ? std::string("it") : escaped(path)) + " cannot be read: " +
                 error_words(entry->fts_errno));
          break;
        case FTS_DEFAULT:
          reason(escaped(path) + " is neither a file, a directory nor a link");
          break;
      }
    }
    if (not_zone_files > zone_files_told)
      reason("and " + std::to_string(not_zone_files - zone_files_told) +
             " more files in zoneinfo/ are not zone files");
  }

  // A link must lead, through the set's own entries, to one of them.
  void check_link(const std::string& path, const char* at) {
    const unique_fd led(open_beneath(top_fd_, path));
    if (led.valid()) return;
    astray_ = true;
    reason(escaped(path) + astray_words(errno) + escaped(link_content(at)));
  }

  // Whether a directory below the top may be changed by another user than
  // root, who owns the top; then that is the one reason.
  bool shared_directory() {
    const walk_handle walk =
        open_walk(top_, FTS_COMFOLLOW | FTS_PHYSICAL | FTS_NOCHDIR, by_name);
    while (FTSENT* entry = walk ? fts_read(walk.get()) : nullptr) {
      stay_shallow(walk.get(), entry, 0);
      if (entry->fts_info != FTS_D || entry->fts_level == 0 ||
          !not_roots_alone(*entry->fts_statp))
        continue;
      char words[128];
      std::snprintf(words, sizeof words,
                    " may be changed by others than root, who owns the data set "
                    "(owner %u, group %u, mode %04o)",
                    static_cast<unsigned>(entry->fts_statp->st_uid),
                    static_cast<unsigned>(entry->fts_statp->st_gid),
                    static_cast<unsigned>(entry->fts_statp->st_mode & 07777));
      reason(escaped(below_top(*entry)) + words);
      return true;
    }
    return false;
  }

  // Whether "+VERSION" can be read as a regular file and says the version's
  // year and letters; a reason otherwise.
  bool check_version_file() {
    const std::string wanted = check_.version_string.substr(0, check_.version_string.find('.'));
    const kav_word_read read =
        read_word(top_ + "/zoneinfo/+VERSION", version_word_bound, false);
    const std::string& word = read.word;
    if (read.error == ELOOP)
      reason("zoneinfo/+VERSION is a link: only a regular file counts");
    else if (read.error != 0)
      reason(read.error == ENOENT ? "zoneinfo/+VERSION is missing"
                                  : "zoneinfo/+VERSION cannot be read: " + error_words(read.error));
    else if (!read.problem.empty())
      reason("zoneinfo/+VERSION " + read.problem);
    else if (word != wanted)
      reason("zoneinfo/+VERSION says " + (word.empty() ? "nothing" : escaped(word)) + ", not " +
             escaped(wanted));
    else
      return true;
    return false;
  }

  // Whether icutz/ holds exactly one file the start would take; names the
  // entries that come close.
  bool check_icu_directory() {
    const walk_handle walk =
        open_walk(top_ + "/icutz", FTS_COMFOLLOW | FTS_PHYSICAL | FTS_XDEV, by_name);
    std::vector<std::string> taken;
    while (FTSENT* entry = walk ? fts_read(walk.get()) : nullptr) {
      stay_shallow(walk.get(), entry, 1);
      if (entry->fts_level == 0 || entry->fts_info == FTS_DP) continue;
      const std::string path = below_top(*entry);
      const bool data_file_name = !icu_format_of_file_name(entry->fts_name).empty();
      if (data_file_name && may_be_icu_data_file(*entry)) {
        taken.push_back(escaped(path));
        check_data_file(*entry);
      }
      else if (data_file_name)
        reason(escaped(path) + near_miss(*entry));
      else if (almost_data_file_name(entry->fts_name))
        reason(escaped(path) + ": the name is not icutzTAG.dat (TAG: digits, then l, b or e)");
    }
    if (taken.empty()) reason("icutz/ holds no ICU data file that the start would take");
    if (taken.size() > 1) {
      std::string names;
      for (const std::string& name : taken) names += (names.empty() ? "" : ", ") + name;
      reason("icutz/ holds " + std::to_string(taken.size()) + " ICU data files (" + names +
             "): the start takes whichever the directory lists first");
    }
    return taken.size() == 1;
  }

  // The data file the start would take holds data, and can be read.
  void check_data_file(const FTSENT& entry) {
    struct stat status;
    const unique_fd fd(open_file(entry.fts_path, status));
    if (!fd.valid())
      reason(escaped(below_top(entry)) + " cannot be read: " + error_words(errno));
    else if (status.st_size == 0)
      reason(escaped(below_top(entry)) + " is empty");
  }

  static std::string near_miss(const FTSENT& entry) {
    if (entry.fts_level > 1) return " lies in a subdirectory: only files directly in icutz/ count";
    if (entry.fts_info == FTS_SL || entry.fts_info == FTS_SLNONE)
      return " is a link: only a regular file counts";
    if (entry.fts_info == FTS_D) return " is a directory";
    if (entry.fts_info != FTS_F) return " cannot be read: " + error_words(entry.fts_errno);
    char mode[96];
    std::snprintf(mode, sizeof mode,
                  " is not readable by others (mode %04o; kavdata stage makes it 0644)",
                  static_cast<unsigned>(entry.fts_statp->st_mode & 07777));
    return mode;
  }

  // What the next start would do if tz_latest named the data set.
  void check_next_start(bool icu_explained, bool version_explained) {
    kav_device device = read_device(false);
    device.latest = {paths::update_parent + check_.version_string, 0};
    device.download = build_data_set(top_, check_.version_string);
    const kav_next_start next = predict_next_start(device);
    const bool taken = device.download.dataset && next.exit_status == 0 &&
                       next.zoneinfo.type == kav_entry::link &&
                       next.zoneinfo.target == device.download.dataset->zoneinfo().directory();
    if (!taken) {
      if (version_explained && !device.download.obstacle.empty()) return;
      if (next.download_refusal.empty())
        reason("the next start would not switch to it: " + next.steps.back());
      else if (!(next.download_incompatible && icu_explained))
        reason(next.download_refusal);
    } else if (!next.local_zone_exists) {
      reason("the local time link would lead to " + escaped(zone_name(next.local_zone_path)) +
             ", which it lacks: the device would show UTC");
    }
  }

  kav_check check_;
  const std::string top_;  // a path to the data set that no one can swap: its descriptor's
  const int top_fd_;
  bool roots_;          // root owns the data set's top
  bool linked_ = false;  // zoneinfo/ or icutz/ is a link
  bool astray_ = false;  // a link leads elsewhere than to an entry of the set
};

// The directory's own name, ignoring trailing slashes.
std::string directory_name(const std::string& directory) {
  const std::size_t end = directory.find_last_not_of('/');
  const std::size_t start = directory.rfind('/', end);
  return directory.substr(start == std::string::npos ? 0 : start + 1,
                          end - (start == std::string::npos ? 0 : start + 1) + 1);
}

// Judges `directory` as far as `depth`.
kav_check judge(const std::string& directory, const std::string& as, kav_depth depth) {
  kav_check check;
  check.directory = directory;
  check.version_string = as.empty() ? directory_name(directory) : as;
  std::string name;
  unique_fd top(-1);
  struct stat status;
  try {
    top = unique_fd(open_given(directory, O_RDONLY | O_DIRECTORY | O_NONBLOCK, &name));
  } catch (const kav_failure& failure) {
    check.reasons.push_back(failure.what());
    return check;
  }
  if (!top.valid() || ::fstat(top.get(), &status) != 0) {
    check.reasons.push_back(escaped(directory) +
                            (errno == ENOENT    ? " does not exist"
                             : errno == ENOTDIR ? " is not a directory"
                                                : " cannot be read: " + error_words(errno)));
    return check;
  }
  char resolved[PATH_MAX];
  if (as.empty() && name.empty() && ::realpath(directory.c_str(), resolved) != nullptr)
    name = directory_name(resolved);
  if (as.empty() && !name.empty()) check.version_string = name;
  // Root reads what it is given as its owner would: no link, hard link or
  // swapped directory can show it root's files.
  std::optional<kav_provider> provider;
  std::optional<kav_provider::kav_acting> acting;
  try {
    if (::geteuid() == 0) acting.emplace(provider.emplace(status, escaped(directory).c_str()));
  } catch (const kav_failure& failure) {
    check.reasons.push_back(failure.what());
    return check;
  }
  const kav_muted_warnings muted;
  try {
    // The data set is read by path, the boot program's code too, through the
    // descriptor opened here: no one can swap it, nor a directory above it.
    const std::string pinned = "/proc/self/fd/" + std::to_string(top.get());
    return kav_checker(directory, top.get(), pinned, check.version_string, status.st_uid == 0)
        .run(depth);
  } catch (const std::bad_alloc&) {
    check.reasons.push_back("memory ran out");
    return check;
  }
}

}  // namespace

kav_check check_data_set(const std::string& directory, const std::string& as) {
  return judge(directory, as, kav_depth::whole);
}

kav_check check_contents(const std::string& directory, const std::string& as) {
  return judge(directory, as, kav_depth::contents);
}

int print_check(const kav_check& check) {
  for (const std::string& reason : check.reasons) std::printf("%s\n", reason.c_str());
  if (!check.reasons.empty()) return 1;
  std::printf("the next start would switch to %s if it were staged\n",
              escaped(check.version_string).c_str());
  return 0;
}

}  // namespace kav
