#include "fs/file_ops.h"

#include <cerrno>
#include <err.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/data_protection.h"
#include "fs/fail.h"
#include "fs/unique_fd.h"

namespace kav {

void remove(const std::string& path) {
  if (::unlink(path.c_str()) == 0 || errno == ENOENT) return;
  warn_and_throw("remove: could not remove %s", path.c_str());
}

bool exists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

std::string read_symlink(const std::string& path) {
  constexpr std::size_t max_content = 1024;
  char buffer[max_content + 1];
  const ssize_t length = ::readlink(path.c_str(), buffer, max_content);
  if (length >= 0) return std::string(buffer, static_cast<std::size_t>(length));
  if (errno == ENOENT) return {};
  warn_and_throw("read_symlink: %s", path.c_str());
}

void create_symlink(const std::string& target, const std::string& link_path) {
  if (::symlink(target.c_str(), link_path.c_str()) == 0) return;
  warn_and_throw("create_symlink: from %s to %s", link_path.c_str(),
                 target.c_str());
}

void touch_file(const std::string& path) {
  unique_fd fd(open_protected(path.c_str(), O_RDWR | O_CREAT, protection_class,
                              0, 0666));
  if (!fd.valid()) return warn("Cannot touch file %s", path.c_str());
  struct stat status;
  const bool stat_succeeded = ::fstat(fd.get(), &status) == 0;
  // Closed before the warning either way; a failed close reports its own errno.
  if (fd.close() != 0 || !stat_succeeded)
    warn("Cannot touch file %s", path.c_str());
}

void set_protection_class(const std::string& directory) {
  unique_fd fd(::open(directory.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.valid()) set_directory_protection_class(fd.get(), protection_class);
}

void prepare_directories() {
  set_protection_class(paths::timezone_dir);
  set_protection_class(paths::update_parent);
}

}  // namespace kav
