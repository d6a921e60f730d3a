#include "kavdata/walks/tree_copy.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "kavdata/walks/failure.h"
#include "kavdata/walks/handles.h"
#include "kavdata/walks/io.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

constexpr mode_t directory_mode = 0755;
constexpr mode_t file_mode = 0644;
constexpr std::size_t link_size = 4096;

class kav_tree_copier {
 public:
  kav_tree_copier(const kav_provider& provider, const kav_copy_limits& limits, dev_t device)
      : provider_(provider), limits_(limits), device_(device) {}

  // Copies the directory `source` at `depth` levels below the top.
  void copy(int source, const std::string& from, int target, const std::string& to,
            std::size_t depth) {
    struct stat status;
    if (::fstat(source, &status) != 0) fail("cannot read " + escaped(from), errno);
    refuse_if_others_write(status, from);
    for (const std::string& name : names_in(source, from)) {
      if (++entries_ > archive_entry_limit)
        throw kav_failure("the data set holds more than " + std::to_string(archive_entry_limit) +
                          " entries");
      if (depth + 1 > depth_limit)
        throw kav_failure(escaped(from + "/" + name) + " lies more than " +
                          std::to_string(depth_limit) + " levels below the top");
      copy_entry(source, from + "/" + name, target, to + "/" + name, name.c_str(), depth + 1);
    }
  }

  std::uint64_t bytes() const { return bytes_; }

 private:
  void copy_entry(int source, const std::string& from, int target, const std::string& to,
                  const char* name, std::size_t depth) {
    struct stat status;
    {
      const kav_provider::kav_acting as_provider(provider_);
      if (::fstatat(source, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        fail("cannot read " + escaped(from), errno);
    }
    race_point(source, name);
    if (S_ISLNK(status.st_mode)) return copy_link(source, from, target, to, name);
    if (S_ISDIR(status.st_mode))
      return copy_directory(source, from, target, to, name, status, depth);
    if (S_ISREG(status.st_mode)) return copy_file(source, from, target, to, name, status);
    throw kav_failure(escaped(from) + " is neither a file, a directory nor a link");
  }

  // Opens what was judged; what stands there now must be the same file.
  unique_fd open_judged(int source, const std::string& from, const char* name, int flags,
                        const struct stat& judged) const {
    unique_fd fd(provider_.open_at(source, name, flags | O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    struct stat status;
    if (!fd.valid() && errno != ELOOP && errno != ENOTDIR) fail("cannot read " + escaped(from), errno);
    if (fd.valid() && ::fstat(fd.get(), &status) != 0) fail("cannot read " + escaped(from), errno);
    // A link or another file put in place of what was judged.
    if (!fd.valid() || !same_file(status, judged) ||
        (status.st_mode & S_IFMT) != (judged.st_mode & S_IFMT))
      throw kav_failure(escaped(from) + " changed while it was read");
    return fd;
  }

  void copy_directory(int source, const std::string& from, int target, const std::string& to,
                      const char* name, const struct stat& judged, std::size_t depth) {
    const unique_fd in = open_judged(source, from, name, O_DIRECTORY, judged);
    if (judged.st_dev != device_ || mount_root(in.get()))
      throw kav_failure(escaped(from) + " is on another file system");
    if (::mkdirat(target, name, directory_mode) != 0) fail("cannot write " + escaped(to), errno);
    const unique_fd out(open_directory_at(target, name));
    if (!out.valid()) fail("cannot write " + escaped(to), errno);
    copy(in.get(), from, out.get(), to, depth);
  }

  void copy_file(int source, const std::string& from, int target, const std::string& to,
                 const char* name, const struct stat& judged) {
    const unique_fd in = open_judged(source, from, name, 0, judged);
    const auto size = static_cast<std::uint64_t>(judged.st_size);
    if (size > limits_.file)
      throw kav_failure(escaped(from) + " is larger than " + size_words(limits_.file));
    if (bytes_ + size > limits_.whole)
      throw kav_failure("the data set is larger than " + size_words(limits_.whole));
    if (bytes_ + size > limits_.free_space)
      throw kav_failure("the data set does not fit on the disk: " +
                        size_words(limits_.free_space) + " may be used");
    const unique_fd out(::openat(target, name,
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, file_mode));
    if (!out.valid()) fail("cannot write " + escaped(to), errno);
    bytes_ += copy_bytes(in.get(), from, out.get(), to, size);
  }

  // Copies at most `size` bytes: a file that grows while it is read is cut
  // where it was judged, and one that shrinks is as short as it became.
  static std::uint64_t copy_bytes(int in, const std::string& from, int out, const std::string& to,
                                  std::uint64_t size) {
    char buffer[65536];
    std::uint64_t copied = 0;
    while (copied < size) {
      const ssize_t length = ::read(in, buffer, std::min<std::uint64_t>(sizeof buffer, size - copied));
      if (length < 0 && errno == EINTR) continue;
      if (length < 0) fail("cannot read " + escaped(from), errno);
      if (length == 0) break;
      write_all(out, buffer, static_cast<std::size_t>(length), escaped(to));
      copied += static_cast<std::uint64_t>(length);
    }
    return copied;
  }

  void copy_link(int source, const std::string& from, int target, const std::string& to,
                 const char* name) const {
    char content[link_size];
    ssize_t length;
    {
      const kav_provider::kav_acting as_provider(provider_);
      length = ::readlinkat(source, name, content, sizeof content);
    }
    if (length < 0) fail("cannot read " + escaped(from), errno);
    if (static_cast<std::size_t>(length) == sizeof content)
      throw kav_failure(escaped(from) + " is a link longer than " + std::to_string(link_size - 1) +
                        " bytes");
    content[length] = '\0';
    if (std::strlen(content) != static_cast<std::size_t>(length))
      throw kav_failure(escaped(from) + " changed while it was read");
    if (::symlinkat(content, target, name) != 0) fail("cannot write " + escaped(to), errno);
  }

  // Root reads a tree that root provides as root: none of it may be open to
  // changes by others while it is read.
  void refuse_if_others_write(const struct stat& directory, const std::string& path) const {
    if (!provider_.as_self() || provider_.uid() != 0) return;
    if (directory.st_uid != 0)
      throw kav_failure(escaped(path) + " belongs to user " + std::to_string(directory.st_uid) +
                        " in a tree that root provides");
    if ((directory.st_mode & S_IWOTH) != 0 ||
        ((directory.st_mode & S_IWGRP) != 0 && directory.st_gid != 0))
      throw kav_failure(escaped(path) + " may be written by others in a tree that root provides");
  }

  const kav_provider& provider_;
  const kav_copy_limits& limits_;
  const dev_t device_;
  std::uint64_t bytes_ = 0;
  std::uint64_t entries_ = 0;
};

bool same_content(int a, int b) {
  char left[65536], right[sizeof left];
  for (;;) {
    const ssize_t length = ::read(a, left, sizeof left);
    if (length < 0 || ::read(b, right, sizeof right) != length) return false;
    if (length == 0) return true;
    if (std::memcmp(left, right, static_cast<std::size_t>(length)) != 0) return false;
  }
}

bool same_entry(int a, int b, const char* name) {
  struct stat one, other;
  if (::fstatat(a, name, &one, AT_SYMLINK_NOFOLLOW) != 0 ||
      ::fstatat(b, name, &other, AT_SYMLINK_NOFOLLOW) != 0 ||
      (one.st_mode & (S_IFMT | 07777)) != (other.st_mode & (S_IFMT | 07777)))
    return false;
  if (S_ISLNK(one.st_mode)) {
    char left[link_size], right[link_size];
    const ssize_t length = ::readlinkat(a, name, left, sizeof left);
    return length >= 0 && ::readlinkat(b, name, right, sizeof right) == length &&
           std::memcmp(left, right, static_cast<std::size_t>(length)) == 0;
  }
  const int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (S_ISDIR(one.st_mode) ? O_DIRECTORY : 0);
  const unique_fd in_a(::openat(a, name, flags)), in_b(::openat(b, name, flags));
  if (!in_a.valid() || !in_b.valid()) return false;
  if (S_ISDIR(one.st_mode)) return same_tree(in_a.get(), in_b.get());
  return S_ISREG(one.st_mode) && one.st_size == other.st_size && same_content(in_a.get(), in_b.get());
}

}  // namespace

std::uint64_t usable_space(int directory) {
  struct statvfs file_system;
  if (::fstatvfs(directory, &file_system) != 0) return UINT64_MAX;
  const std::uint64_t space = std::uint64_t(file_system.f_bavail) * file_system.f_frsize;
  return space > archive_free_margin ? space - archive_free_margin : 0;
}

std::uint64_t copy_tree(const kav_provider& provider, int source, const std::string& source_path,
                        int target, const std::string& target_path, const kav_copy_limits& limits) {
  struct stat top;
  if (::fstat(source, &top) != 0) fail("cannot read " + escaped(source_path), errno);
  kav_tree_copier copier(provider, limits, top.st_dev);
  copier.copy(source, source_path, target, target_path, 0);
  return copier.bytes();
}

bool same_tree(int a, int b) {
  try {
    const std::vector<std::string> names = names_in(a, {});
    if (names != names_in(b, {})) return false;
    for (const std::string& name : names)
      if (!same_entry(a, b, name.c_str())) return false;
    return true;
  } catch (const kav_failure&) {
    return false;
  }
}

}  // namespace kav
