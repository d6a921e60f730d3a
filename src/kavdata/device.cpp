#include "kavdata/device.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "components/kav_icu.h"
#include "components/kav_zoneinfo.h"
#include "dataset/dataset_links.h"
#include "dataset/update_root.h"
#include "fs/file_ops.h"
#include "fs/unique_fd.h"
#include "fs/walk.h"

namespace kav {
namespace {

// Whether root without capabilities may write (`bit` 2) or search (1) what
// `status` describes: the owner's bits apply to what root owns, the group's
// to what root's group owns, the others' to everything else.
bool root_may(const struct stat& status, mode_t bit) {
  const mode_t shift = status.st_uid == 0 ? 6 : status.st_gid == 0 ? 3 : 0;
  return (status.st_mode >> shift & bit) != 0;
}

bool read_only_file_system(const std::string& path) {
  struct statvfs file_system;
  return ::statvfs(path.c_str(), &file_system) == 0 && (file_system.f_flag & ST_RDONLY) != 0;
}

bool directory_writable(const std::string& directory) {
  struct stat status;
  return ::stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         root_may(status, 2) && root_may(status, 1) && !read_only_file_system(directory);
}

std::string parent_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

int directory_error(const std::string& path) {
  const unique_fd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return fd.valid() ? 0 : errno;
}

bool empty_directory(const std::string& path, int& error) {
  const directory_handle directory(::opendir(path.c_str()));
  if (!directory) {
    error = errno;
    return false;
  }
  errno = 0;
  while (const dirent* entry = ::readdir(directory.get()))
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
      return false;
  // A listing that fails part-way proves nothing empty.
  error = errno;
  return error == 0;
}

std::string file_content(const std::string& path, int& error) {
  const unique_fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string content;
  char buffer[8192];
  ssize_t length = fd.valid() ? 0 : -1;
  while (fd.valid() && (length = ::read(fd.get(), buffer, sizeof buffer)) > 0)
    content.append(buffer, static_cast<std::size_t>(length));
  if (length < 0) error = errno;
  return content;
}

kav_link_read read_link(const std::string& path) {
  kav_link_read link;
  try {
    link.content = read_symlink(path);
  } catch (int error) {
    link.error = error;
  }
  return link;
}

// Builds with `make`, putting what the data set throws into words.
template <class F>
kav_built build(F make) {
  kav_built built;
  try {
    built.dataset.emplace(make());
  } catch (const std::invalid_argument&) {
    built.failure = "it lies outside " + std::string(paths::update_parent);
  } catch (const std::out_of_range&) {
    built.failure = "its version string has a number beyond 2147483647";
  } catch (const std::bad_alloc&) {
    built.failure = "memory ran out";
  } catch (int error) {
    built.failure = "its ICU directory cannot be walked: " + std::string(std::strerror(error));
  }
  return built;
}

// Why what declares the ICU format, or the system's version, gave nothing:
// looked into only then.
void find_read_errors(kav_built& built) {
  if (!built.dataset) return;
  const bool system = built.dataset->root().empty();
  if (built.dataset->icu().format().empty())
    built.format_error = system ? read_error(paths::system_icu + std::string("/icutzformat.txt"))
                                : directory_error(built.dataset->icu().directory());
  if (system && built.dataset->zoneinfo().version_text().empty())
    built.version_error = read_error(paths::system_zoneinfo + std::string("/+VERSION"));
}

}  // namespace

// Link contents are at most 4095 bytes.
std::string link_content(const std::string& path) {
  char buffer[4096];
  const ssize_t length = ::readlink(path.c_str(), buffer, sizeof buffer);
  return length < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(length));
}

int read_error(const std::string& path) {
  const unique_fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  char byte;
  return fd.valid() && ::read(fd.get(), &byte, 1) >= 0 ? 0 : errno;
}

kav_entry examine(const std::string& path, bool with_content) {
  kav_entry entry;
  entry.parent_writable = directory_writable(parent_of(path));
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) {
    entry.error = errno;
    entry.type = errno == ENOENT ? kav_entry::absent : kav_entry::unknown;
  } else if (S_ISLNK(status.st_mode)) {
    entry.type = kav_entry::link;
    entry.target = link_content(path);
  } else if (S_ISREG(status.st_mode)) {
    entry.type = kav_entry::file;
    entry.writable = root_may(status, 2) && !read_only_file_system(path);
    if (with_content) entry.content = file_content(path, entry.error);
  } else if (S_ISDIR(status.st_mode)) {
    entry.type = empty_directory(path, entry.error) ? kav_entry::empty_directory
                                                    : kav_entry::directory;
  } else {
    entry.type = kav_entry::other;
  }
  return entry;
}

kav_built build_data_set(const std::string& root) {
  kav_built built = build([&] { return root.empty() ? kav_dataset() : kav_dataset(root); });
  find_read_errors(built);
  return built;
}

kav_built build_data_set(const std::string& root, const std::string& version_string) {
  kav_built built = build([&] { return kav_dataset(root, version_string); });
  find_read_errors(built);
  return built;
}

kav_device read_device(bool with_download) {
  kav_device device;
  device.system = build_data_set({});
  device.latest = read_link(paths::latest_link);
  device.current_link = read_link(paths::zoneinfo_link);
  if (device.current_link.error == 0) {
    try {
      device.current_root = root_from_zoneinfo_link(device.current_link.content);
      device.current_link_usable = true;
    } catch (...) {
    }
  }
  device.current = build_data_set(device.current_root);
  if (with_download && device.latest.error == 0 && !device.latest.content.empty())
    device.download = build_data_set(device.latest.content);
  device.localtime_link = read_link(paths::localtime_link);
  device.zoneinfo = examine(paths::zoneinfo_link);
  device.icutz = examine(paths::icutz_link);
  device.localtime = examine(paths::localtime_link);
  device.marker = examine(paths::needs_cleanup);
  device.record = examine(paths::version_diff_record, true);
  device.old_icu = examine(paths::old_icu);
  return device;
}

std::string data_set_name(const std::string& target) {
  if (!has_update_prefix(target)) return {};
  return target.substr(update_prefix_length,
                       target.find('/', update_prefix_length) - update_prefix_length);
}

}  // namespace kav
