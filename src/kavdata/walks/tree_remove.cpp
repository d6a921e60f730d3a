#include "kavdata/walks/tree_remove.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

class kav_tree_remover {
 public:
  explicit kav_tree_remover(dev_t device) : device_(device) {}

  void remove(int parent, const std::string& name, const std::string& path) {
    struct stat status;
    if (::fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) return;
      cannot_delete(path, errno);
    }
    race_point(parent, name.c_str());
    if (S_ISDIR(status.st_mode)) empty_directory(parent, name, path, status);
    const int flags = S_ISDIR(status.st_mode) ? AT_REMOVEDIR : 0;
    if (::unlinkat(parent, name.c_str(), flags) != 0) {
      // What was judged a directory may be a link swapped in for it: a
      // link is deleted as a link.
      if (!(flags != 0 && errno == ENOTDIR && ::unlinkat(parent, name.c_str(), 0) == 0))
        cannot_delete(path, errno);
    }
    if (S_ISREG(status.st_mode)) bytes_ += static_cast<std::uint64_t>(status.st_size);
  }

  std::uint64_t bytes() const { return bytes_; }

 private:
  void empty_directory(int parent, const std::string& name, const std::string& path,
                       const struct stat& judged) {
    if (judged.st_dev != device_) throw kav_failure(escaped(path) + " is on another file system");
    open_up(parent, name.c_str(), judged);
    const unique_fd fd(open_directory_at(parent, name.c_str()));
    // A link swapped in: unlinkat deletes the link itself.
    if (!fd.valid() && (errno == ENOTDIR || errno == ELOOP)) return;
    if (!fd.valid()) cannot_delete(path, errno);
    struct stat status;
    if (::fstat(fd.get(), &status) != 0) cannot_delete(path, errno);
    if (status.st_dev != device_ || mount_root(fd.get()))
      throw kav_failure(escaped(path) + " is a mount point: it is left alone");
    for (const std::string& entry : names_in(fd.get(), path)) remove(fd.get(), entry, path + "/" + entry);
  }

  const dev_t device_;
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
