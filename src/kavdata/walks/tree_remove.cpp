#include "kavdata/walks/tree_remove.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

[[noreturn]] void cannot_delete(const std::string& path, int error) {
  fail("cannot delete " + escaped(path), error);
}

// Gives the directory `name`, judged to be `judged`, the owner's rights it
// needs to be emptied where it is this user's own, through a handle on
// exactly that directory: a name looked up again could be a link by then.
void open_up(int parent, const char* name, const struct stat& judged) {
  if (judged.st_uid != ::geteuid() || (judged.st_mode & S_IRWXU) == S_IRWXU) return;
  const unique_fd handle(::openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!handle.valid() || ::fstat(handle.get(), &status) != 0 || !same_file(status, judged)) return;
  // Where it fails, opening or emptying the directory says why.
  const std::string self = "/proc/self/fd/" + std::to_string(handle.get());
  ::fchmodat(AT_FDCWD, self.c_str(), (judged.st_mode & 07777) | S_IRWXU, 0);
}

// Deletes a tree depth first without recursion: it holds the directory it
// empties and, for a moment, one parent or child, whatever the depth. It
// climbs back through "..", which must be the very directory it came from.
class kav_tree_remover {
 public:
  explicit kav_tree_remover(dev_t device) : device_(device) {}

  void remove(int parent, const std::string& name, const std::string& path) {
    struct stat status;
    if (!judge(parent, name, path, status)) return;
    if (!S_ISDIR(status.st_mode)) return unlink_entry(parent, name, path, status);
    unique_fd here = enter(parent, name, path, status);
    if (!here.valid()) return unlink_entry(parent, name, path, status);
    path_ = path;
    levels_.push_back({status, name, 0, {}});
    empty_of_files(here.get());
    while (!levels_.empty()) {
      if (levels_.back().directories.empty()) {
        here = climb(std::move(here), parent);
        continue;
      }
      const std::string next = levels_.back().directories.back();
      levels_.back().directories.pop_back();
      const std::string next_path = path_ + "/" + next;
      if (!judge(here.get(), next, next_path, status)) continue;
      unique_fd down = S_ISDIR(status.st_mode) ? enter(here.get(), next, next_path, status)
                                               : unique_fd(-1);
      if (!down.valid()) {
        unlink_entry(here.get(), next, next_path, status);
        continue;
      }
      levels_.push_back({status, next, path_.size(), {}});
      path_ = next_path;
      here = std::move(down);
      empty_of_files(here.get());
    }
  }

  std::uint64_t bytes() const { return bytes_; }

 private:
  // A directory being emptied: itself as opened, its name in its parent, the
  // length of its parent's path, and the subdirectories in it still to be
  // deleted.
  struct kav_level {
    struct stat status;
    std::string name;
    std::size_t parent_path;
    std::vector<std::string> directories;
  };

  // Whether `name` still exists, in `status`.
  static bool judge(int parent, const std::string& name, const std::string& path,
                    struct stat& status) {
    if (::fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) return false;
      cannot_delete(path, errno);
    }
    race_point(parent, name.c_str());
    return true;
  }

  // Opens the directory judged to be `judged`; invalid where a link was
  // swapped in for it, which unlink_entry then deletes as a link.
  unique_fd enter(int parent, const std::string& name, const std::string& path,
                  struct stat& judged) const {
    if (judged.st_dev != device_) throw kav_failure(escaped(path) + " is on another file system");
    open_up(parent, name.c_str(), judged);
    unique_fd fd(open_directory_at(parent, name.c_str()));
    if (!fd.valid() && (errno == ENOTDIR || errno == ELOOP)) return fd;
    if (!fd.valid() || ::fstat(fd.get(), &judged) != 0) cannot_delete(path, errno);
    if (judged.st_dev != device_ || mount_root(fd.get()))
      throw kav_failure(escaped(path) + " is a mount point: it is left alone");
    return fd;
  }

  // Deletes what is not a directory in `directory`; keeps the names of the
  // directories for later.
  void empty_of_files(int directory) {
    kav_level& level = levels_.back();
    for (const std::string& name : names_in(directory, path_)) {
      struct stat status;
      const std::string path = path_ + "/" + name;
      if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno != ENOENT) cannot_delete(path, errno);
      } else if (S_ISDIR(status.st_mode)) {
        level.directories.push_back(name);
      } else {
        race_point(directory, name.c_str());
        unlink_entry(directory, name, path, status);
      }
    }
    // Taken from the back, in byte order.
    std::reverse(level.directories.begin(), level.directories.end());
  }

  // Leaves the emptied directory `here` for its parent, and deletes it.
  unique_fd climb(unique_fd here, int top_parent) {
    const kav_level done = std::move(levels_.back());
    levels_.pop_back();
    unique_fd up(-1);
    if (!levels_.empty()) {
      up = unique_fd(::openat(here.get(), "..", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      struct stat status;
      if (!up.valid() || ::fstat(up.get(), &status) != 0)
        cannot_delete(path_.substr(0, done.parent_path), errno);
      if (!same_file(status, levels_.back().status))
        throw kav_failure(escaped(path_) + " moved while it was deleted");
    }
    here = unique_fd(-1);
    unlink_entry(levels_.empty() ? top_parent : up.get(), done.name, path_, done.status);
    path_.resize(done.parent_path);
    return up;
  }

  void unlink_entry(int parent, const std::string& name, const std::string& path,
                    const struct stat& judged) {
    const int flags = S_ISDIR(judged.st_mode) ? AT_REMOVEDIR : 0;
    if (::unlinkat(parent, name.c_str(), flags) != 0) {
      // What was judged a directory may be a link swapped in for it: a
      // link is deleted as a link.
      if (!(flags != 0 && errno == ENOTDIR && ::unlinkat(parent, name.c_str(), 0) == 0))
        cannot_delete(path, errno);
    }
    if (S_ISREG(judged.st_mode)) bytes_ += static_cast<std::uint64_t>(judged.st_size);
  }

  const dev_t device_;
  std::vector<kav_level> levels_;
  std::string path_;  // of the directory being emptied, for messages
  std::uint64_t bytes_ = 0;
};

}  // namespace

std::uint64_t remove_tree_at(int parent, const std::string& name, const std::string& path) {
  struct stat status;
  if (::fstat(parent, &status) != 0) cannot_delete(path, errno);
  kav_tree_remover remover(status.st_dev);
  remover.remove(parent, name, path);
  return remover.bytes();
}

}  // namespace kav
