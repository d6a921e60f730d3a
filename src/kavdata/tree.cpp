#include "kavdata/tree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/unique_fd.h"
#include "fs/walk.h"
#include "kavdata/device.h"
#include "kavdata/failure.h"

namespace kav {
namespace {

constexpr mode_t staged_directory_mode = 0755;
constexpr mode_t staged_file_mode = 0644;

// The path of a walk entry relative to the walk's `top`: "" or "/...".
std::string below(const FTSENT& entry, const std::string& top) {
  return std::string(entry.fts_path).substr(top.size());
}

[[noreturn]] void unreadable(const FTSENT& entry) {
  fail("cannot read " + std::string(entry.fts_path), entry.fts_errno);
}

// Gives a staged file or directory its mode and root as its owner, then
// flushes it to disk.
void settle(int fd, mode_t mode, const std::string& path) {
  if (::fchmod(fd, mode) != 0 || ::fchown(fd, 0, 0) != 0 || ::fsync(fd) != 0)
    fail("cannot write " + path, errno);
}

void copy_file(const std::string& source, const std::string& target) {
  const unique_fd in(::open(source.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  if (!in.valid()) fail("cannot read " + source, errno);
  unique_fd out(::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!out.valid()) fail("cannot write " + target, errno);
  char buffer[65536];
  for (ssize_t length; (length = ::read(in.get(), buffer, sizeof buffer)) != 0;) {
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) fail("cannot read " + source, errno);
    for (const char* next = buffer; length > 0;) {
      const ssize_t written = ::write(out.get(), next, static_cast<std::size_t>(length));
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) fail("cannot write " + target, errno);
      next += written;
      length -= written;
    }
  }
  settle(out.get(), staged_file_mode, target);
  if (out.close() != 0) fail("cannot write " + target, errno);
}

void copy_link(const std::string& source, const std::string& target) {
  char content[4096];
  const ssize_t length = ::readlink(source.c_str(), content, sizeof content - 1);
  if (length < 0) fail("cannot read " + source, errno);
  content[length] = '\0';
  if (::symlink(content, target.c_str()) != 0 || ::lchown(target.c_str(), 0, 0) != 0)
    fail("cannot write " + target, errno);
}

void settle_directory(const std::string& path) {
  const unique_fd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd.valid()) fail("cannot write " + path, errno);
  settle(fd.get(), staged_directory_mode, path);
}

bool same_content(const char* a, const char* b) {
  const unique_fd one(::open(a, O_RDONLY | O_CLOEXEC)), other(::open(b, O_RDONLY | O_CLOEXEC));
  if (!one.valid() || !other.valid()) return false;
  char left[65536], right[sizeof left];
  for (;;) {
    const ssize_t length = ::read(one.get(), left, sizeof left);
    if (length < 0 || ::read(other.get(), right, sizeof right) != length) return false;
    if (length == 0) return true;
    if (std::char_traits<char>::compare(left, right, static_cast<std::size_t>(length)) != 0)
      return false;
  }
}

// Whether the staged entry `copy` is what copy_staged makes of `entry`.
bool same_entry(const FTSENT& entry, const FTSENT& copy) {
  const struct stat& staged = *copy.fts_statp;
  switch (entry.fts_info) {
    case FTS_D:
    case FTS_DP:
      return (staged.st_mode & 07777) == staged_directory_mode && staged.st_uid == 0;
    case FTS_F:
      return (staged.st_mode & 07777) == staged_file_mode && staged.st_uid == 0 &&
             staged.st_size == entry.fts_statp->st_size &&
             same_content(entry.fts_path, copy.fts_path);
    case FTS_SL:
    case FTS_SLNONE:
      return link_content(entry.fts_path) == link_content(copy.fts_path);
  }
  return false;
}

}  // namespace

std::uint64_t tree_size(const std::string& path, int& error) {
  const walk_handle walk = open_walk(path, FTS_PHYSICAL | FTS_NOCHDIR);
  if (!walk) {
    error = errno;
    return 0;
  }
  std::uint64_t size = 0;
  while (const FTSENT* entry = fts_read(walk.get())) {
    if (entry->fts_info == FTS_F) size += static_cast<std::uint64_t>(entry->fts_statp->st_size);
    if ((entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR || entry->fts_info == FTS_NS) &&
        error == 0)
      error = entry->fts_errno;
  }
  if (errno != 0 && error == 0) error = errno;
  return size;
}

std::uint64_t copy_staged(const std::string& source, const std::string& target) {
  const walk_handle walk = open_walk(source, FTS_PHYSICAL | FTS_NOCHDIR, by_name);
  if (!walk) fail("cannot read " + source, errno);
  std::uint64_t size = 0;
  while (const FTSENT* entry = fts_read(walk.get())) {
    const std::string copy = target + below(*entry, source);
    switch (entry->fts_info) {
      case FTS_D:
        // Closed to others until it is whole.
        if (entry->fts_level > 0 && ::mkdir(copy.c_str(), 0700) != 0)
          fail("cannot write " + copy, errno);
        break;
      case FTS_DP: settle_directory(copy); break;
      case FTS_F:
        copy_file(entry->fts_path, copy);
        size += static_cast<std::uint64_t>(entry->fts_statp->st_size);
        break;
      case FTS_SL:
      case FTS_SLNONE: copy_link(entry->fts_path, copy); break;
      case FTS_DNR:
      case FTS_ERR:
      case FTS_NS: unreadable(*entry);
      default:
        throw kav_failure(std::string(entry->fts_path) + " is neither a file, a directory nor a link");
    }
  }
  if (errno != 0) fail("cannot read " + source, errno);
  if (!same_staged(source, target))
    throw kav_failure("cannot read " + source + " whole: the copy differs from it");
  return size;
}

bool same_staged(const std::string& source, const std::string& staged) {
  const walk_handle one = open_walk(source, FTS_PHYSICAL | FTS_NOCHDIR, by_name);
  const walk_handle other = open_walk(staged, FTS_PHYSICAL | FTS_NOCHDIR, by_name);
  if (!one || !other) return false;
  // Both walks list the same names in the same order, or differ.
  for (;;) {
    const FTSENT* entry = fts_read(one.get());
    const FTSENT* copy = fts_read(other.get());
    if (entry == nullptr || copy == nullptr) return entry == copy;
    if (below(*entry, source) != below(*copy, staged) || entry->fts_info != copy->fts_info ||
        !same_entry(*entry, *copy))
      return false;
  }
}

std::uint64_t remove_tree(const std::string& path) {
  const walk_handle walk = open_walk(path, FTS_PHYSICAL | FTS_NOCHDIR);
  if (!walk) fail("cannot delete " + path, errno);
  std::uint64_t size = 0;
  while (const FTSENT* entry = fts_read(walk.get())) {
    if (entry->fts_info == FTS_F) size += static_cast<std::uint64_t>(entry->fts_statp->st_size);
    switch (entry->fts_info) {
      case FTS_D: break;
      case FTS_DNR:
      case FTS_ERR:
      case FTS_NS: unreadable(*entry);
      case FTS_DP:
        if (::rmdir(entry->fts_path) != 0) fail("cannot delete " + std::string(entry->fts_path), errno);
        break;
      default:
        if (::unlink(entry->fts_path) != 0) fail("cannot delete " + std::string(entry->fts_path), errno);
    }
  }
  if (errno != 0) fail("cannot delete " + path, errno);
  return size;
}

std::vector<std::string> directory_names(const std::string& path) {
  const directory_handle directory(::opendir(path.c_str()));
  if (!directory) fail("cannot read " + path, errno);
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(directory.get()))
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
      names.emplace_back(entry->d_name);
  if (errno != 0) fail("cannot read " + path, errno);
  std::sort(names.begin(), names.end());
  return names;
}

void sync_directory(const std::string& path) {
  const unique_fd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd.valid() || ::fsync(fd.get()) != 0) fail("cannot write " + path, errno);
}

}  // namespace kav
