#include "kavdata/archives/archive.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

#include "fs/unique_fd.h"
#include "kavdata/device/version_name.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/io.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/words.h"
#include "version/kav_version.h"

namespace kav {
namespace {

constexpr mode_t file_mode = 0644;
constexpr mode_t directory_mode = 0755;

// The stream as libarchive reads it, bounded.
class kav_input {
 public:
  explicit kav_input(int fd) : fd_(fd) {}

  static la_ssize_t read(archive*, void* self, const void** buffer) {
    return static_cast<kav_input*>(self)->next(buffer);
  }

  // Reads what follows the archive: a stream is read to its end.
  void drain() {
    const void* buffer;
    while (next(&buffer) > 0) {
    }
    if (error_ != 0) fail_read();
  }

  // Throws for a failed read, or says nothing.
  void fail_read() const {
    if (error_ == EFBIG)
      throw kav_failure("the archive is larger than " + size_words(archive_input_limit));
    if (error_ != 0) fail("cannot read the archive", error_);
  }

 private:
  la_ssize_t next(const void** buffer) {
    *buffer = buffer_;
    const ssize_t length = read_stream(fd_, buffer_, sizeof buffer_);
    if (length < 0) return error(errno);
    bytes_ += static_cast<std::uint64_t>(length);
    if (bytes_ > archive_input_limit) return error(EFBIG);
    return length;
  }

  la_ssize_t error(int error) {
    error_ = error;
    return -1;
  }

  int fd_;
  int error_ = 0;
  std::uint64_t bytes_ = 0;
  unsigned char buffer_[65536];
};

using archive_handle = std::unique_ptr<archive, decltype(&archive_read_free)>;

// Gives a made file or directory its mode, and root as its owner when root
// makes it (a set-group-ID parent would give another group).
void settle(int fd, mode_t mode, const std::string& name) {
  if (::fchmod(fd, mode) != 0 || (::geteuid() == 0 && ::fchown(fd, 0, 0) != 0))
    fail("cannot write " + escaped(name), errno);
}

// The first `length` parts of a name, joined again, for messages.
std::string joined(const std::vector<std::string>& parts, std::size_t length) {
  std::string name;
  for (std::size_t i = 0; i < length; ++i) name += (i == 0 ? "" : "/") + parts[i];
  return name;
}

// The directories made under the target, held open from the target down to
// the last one used: the next entry in that directory or near it costs no
// walk from the top, and the descriptors held are as many as the levels.
class kav_made_tree {
 public:
  explicit kav_made_tree(int target) : target_(target) {}

  // The directory of the first `length` parts below the target, made 0700
  // with its parents where missing, never through a link; owned by this.
  int directory(const std::vector<std::string>& parts, std::size_t length) {
    std::size_t kept = 0;
    while (kept < names_.size() && kept < length && names_[kept] == parts[kept]) ++kept;
    names_.resize(kept);
    fds_.erase(fds_.begin() + static_cast<std::ptrdiff_t>(kept), fds_.end());
    for (std::size_t i = kept; i < length; ++i) {
      const int parent = i == 0 ? target_ : fds_.back().get();
      if (::mkdirat(parent, parts[i].c_str(), 0700) == 0)
        made_.emplace_back(parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(i) + 1);
      else if (errno != EEXIST)
        fail("cannot write " + escaped(joined(parts, i + 1)), errno);
      unique_fd fd(::openat(parent, parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      if (!fd.valid()) fail("cannot write " + escaped(joined(parts, i + 1)), errno);
      names_.push_back(parts[i]);
      fds_.push_back(std::move(fd));
    }
    return length == 0 ? target_ : fds_.back().get();
  }

  // How many directories it made.
  std::uint64_t made() const { return made_.size(); }

  // Opens every directory made to others, now that the tree is whole.
  void settle_directories() {
    for (const std::vector<std::string>& parts : made_)
      settle(directory(parts, parts.size()), directory_mode, joined(parts, parts.size()));
  }

 private:
  int target_;
  std::vector<std::string> names_;  // the directories held open, from the top
  std::vector<unique_fd> fds_;
  std::vector<std::vector<std::string>> made_;
};

// The parts of an entry's name, without "." and empty ones; refuses an
// absolute name and "..".
std::vector<std::string> name_parts(const char* raw) {
  if (raw == nullptr) throw kav_failure("an entry has no name");
  const std::string name = raw;
  if (!name.empty() && name[0] == '/')
    throw kav_failure(escaped(name) + " is an absolute name: names are relative to the top");
  std::vector<std::string> parts;
  for (std::size_t start = 0; start <= name.size();) {
    const std::size_t end = std::min(name.find('/', start), name.size());
    const std::string part = name.substr(start, end - start);
    if (part == "..") throw kav_failure(escaped(name) + " leads out of the data set: it holds ..");
    if (!part.empty() && part != ".") parts.push_back(part);
    start = end + 1;
  }
  return parts;
}

class kav_unpacker {
 public:
  kav_unpacker(int input, int target, std::uint64_t free_space, kav_layout layout)
      : input_(input), tree_(target), layout_(layout) {
    struct statvfs space;
    if (::fstatvfs(target, &space) != 0) fail("cannot write the data set", errno);
    free_ = std::min<std::uint64_t>(free_space, std::uint64_t(space.f_bavail) * space.f_frsize);
    block_ = space.f_frsize == 0 ? 4096 : space.f_frsize;
  }

  kav_unpacked run() {
    const archive_handle reader(archive_read_new(), &archive_read_free);
    archive* const a = reader.get();
    if (a == nullptr || archive_read_support_format_tar(a) != ARCHIVE_OK ||
        archive_read_support_filter_gzip(a) != ARCHIVE_OK ||
        archive_read_support_filter_xz(a) != ARCHIVE_OK ||
        archive_read_support_filter_zstd(a) != ARCHIVE_OK ||
        (layout_ == kav_layout::release && archive_read_support_filter_lzip(a) != ARCHIVE_OK) ||
        archive_read_open(a, &input_, nullptr, kav_input::read, nullptr) != ARCHIVE_OK)
      refuse_read(a);
    archive_entry* entry;
    for (int status; (status = archive_read_next_header(a, &entry)) != ARCHIVE_EOF;) {
      if (status < ARCHIVE_WARN) refuse_read(a);
      take(a, entry);
    }
    if (result_.top.empty() && (layout_ == kav_layout::data_set || result_.entries == 0))
      throw kav_failure("the archive holds no data set");
    input_.drain();
    tree_.settle_directories();
    return result_;
  }

 private:
  [[noreturn]] void refuse_read(archive* a) {
    input_.fail_read();
    const char* why = a == nullptr ? nullptr : archive_error_string(a);
    throw kav_failure("cannot read the archive: " +
                      (why == nullptr ? std::string("out of memory") : escaped(why)));
  }

  // Counts `more` entries against the bound.
  void count(std::uint64_t more) {
    if ((result_.entries += more) > archive_entry_limit)
      throw kav_failure("the archive holds more than " + std::to_string(archive_entry_limit) +
                        " entries");
  }

  // Judges an entry from its header alone, before any of its data is read,
  // then makes it.
  void take(archive* a, archive_entry* entry) {
    count(1);
    std::vector<std::string> parts = name_parts(archive_entry_pathname(entry));
    const std::string name = joined(parts, parts.size());
    const mode_t type = archive_entry_filetype(entry);
    result_.newest = std::max<std::int64_t>(result_.newest, archive_entry_mtime(entry));
    if (layout_ == kav_layout::data_set) leave_out_top(parts, name, type);
    if (parts.empty() && type != AE_IFDIR)
      throw kav_failure(escaped(name) + " names the archive's top, which must be a directory");
    const std::string below = joined(parts, parts.size());
    if (parts.size() > depth_limit)
      throw kav_failure(escaped(name) + " lies more than " + std::to_string(depth_limit) +
                        " levels below the top");
    if (archive_entry_hardlink(entry) != nullptr)
      throw kav_failure(escaped(name) + " is a hard link: only files, directories and links");
    if (type == AE_IFREG && archive_entry_sparse_count(entry) > 0)
      throw kav_failure(escaped(name) + " is a sparse file: only files, directories and links");
    // A GNU dumpdir: a directory whose data, never bounded, lists names.
    if (type == AE_IFDIR && archive_entry_size(entry) > 0)
      throw kav_failure(escaped(name) + " is a directory that holds data: only files, "
                                        "directories and links");
    if (type != AE_IFDIR && type != AE_IFLNK && type != AE_IFREG)
      throw kav_failure(escaped(name) + " is neither a file, a directory nor a link");
    const std::uint64_t before = tree_.made();
    const int at = tree_.directory(parts, type == AE_IFDIR ? parts.size() : parts.size() - 1);
    // Directories that names only imply count too, a directory's own entry
    // once; each takes a block.
    const std::uint64_t made = tree_.made() - before;
    count(type == AE_IFDIR && made > 0 ? made - 1 : made);
    take_space(made * block_);
    if (type == AE_IFLNK) make_link(at, parts.back(), below, archive_entry_symlink(entry));
    if (type == AE_IFREG) make_file(a, at, parts.back(), below, archive_entry_size(entry));
  }

  // Judges a data set's one top directory, named by its version, and leaves
  // it out of `parts`.
  void leave_out_top(std::vector<std::string>& parts, const std::string& name, mode_t type) {
    const std::string top = parts.empty() ? "" : parts.front();
    if (!parts.empty()) parts.erase(parts.begin());
    if (result_.top.empty() && !name.empty()) {
      if (const std::string problem =
              version_name_problem(top, ": the archive's top directory names the data set");
          !problem.empty())
        throw kav_failure(problem);
      result_.top = top;
    }
    if (top != result_.top || (parts.empty() && type != AE_IFDIR))
      throw kav_failure("the archive holds " + escaped(result_.top) + " and " + escaped(name) +
                        ": a data set is one top directory");
  }

  [[noreturn]] static void refuse_write(const std::string& path, int error) {
    if (error == EEXIST) throw kav_failure(escaped(path) + " is in the archive twice");
    fail("cannot write " + escaped(path), error);
  }

  // Counts a file against the bounds before a byte of it is written.
  void reserve(const std::string& path, std::int64_t size) {
    const std::uint64_t bytes = size < 0 ? 0 : static_cast<std::uint64_t>(size);
    if (bytes > archive_file_limit)
      throw kav_failure(escaped(path) + " is " + size_words(bytes) + ", more than the " +
                        size_words(archive_file_limit) + " a file may hold");
    result_.bytes += bytes;
    if (result_.bytes > archive_total_limit)
      throw kav_failure("the archive unpacks to more than " + size_words(archive_total_limit));
    take_space((bytes + block_ - 1) / block_ * block_ + block_);
  }

  // Counts `bytes` of the disk against its free space, before they are used.
  void take_space(std::uint64_t bytes) {
    used_ += bytes;
    if (used_ + archive_free_margin > free_)
      throw kav_failure("the archive does not fit: " + size_words(free_) +
                        " are free, and unpacking it leaves less than " +
                        size_words(archive_free_margin));
  }

  void make_file(archive* a, int at, const std::string& last, const std::string& path,
                 std::int64_t size) {
    reserve(path, size);
    unique_fd out(::openat(at, last.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!out.valid()) refuse_write(path, errno);
    char buffer[65536];
    for (la_ssize_t length; (length = archive_read_data(a, buffer, sizeof buffer)) != 0;) {
      if (length < 0) refuse_read(a);
      write_all(out.get(), buffer, static_cast<std::size_t>(length), escaped(path));
    }
    settle(out.get(), file_mode, path);
    if (out.close() != 0) fail("cannot write " + escaped(path), errno);
  }

  // Where the link leads is judged once the whole set is made, on disk.
  void make_link(int at, const std::string& last, const std::string& path, const char* target) {
    const std::string content = target == nullptr ? "" : target;
    reserve(path, 0);
    if (::symlinkat(content.c_str(), at, last.c_str()) != 0) refuse_write(path, errno);
    result_.links.emplace_back(path, content);
    if (::geteuid() == 0 && ::fchownat(at, last.c_str(), 0, 0, AT_SYMLINK_NOFOLLOW) != 0)
      fail("cannot write " + escaped(path), errno);
  }

  kav_input input_;
  kav_made_tree tree_;
  kav_layout layout_;
  kav_unpacked result_;
  std::uint64_t free_ = 0, block_ = 4096, used_ = 0;
};

}  // namespace

kav_unpacked unpack_archive(int input, int target, std::uint64_t free_space, kav_layout layout) {
  return kav_unpacker(input, target, free_space, layout).run();
}

}  // namespace kav
