#include "kavdata/archives/archive.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <sodium.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

#include "fs/unique_fd.h"
#include "kavdata/device/version_name.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/inside.h"
#include "kavdata/walks/words.h"
#include "version/kav_version.h"

namespace kav {
namespace {

constexpr mode_t file_mode = 0644;
constexpr mode_t directory_mode = 0755;

// The stream as libarchive reads it, every byte hashed once, bounded.
class kav_input {
 public:
  explicit kav_input(int fd) : fd_(fd) {
    if (sodium_init() < 0) throw kav_failure("cannot start the hashing library");
    crypto_generichash_init(&state_, nullptr, 0, crypto_generichash_BYTES_MAX);
  }

  static la_ssize_t read(archive*, void* self, const void** buffer) {
    return static_cast<kav_input*>(self)->next(buffer);
  }

  // Reads what follows the archive, which the signature covers too.
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

  kav_digest digest() {
    kav_digest digest;
    crypto_generichash_final(&state_, digest.data(), digest.size());
    return digest;
  }

 private:
  la_ssize_t next(const void** buffer) {
    *buffer = buffer_;
    for (;;) {
      const ssize_t length = ::read(fd_, buffer_, sizeof buffer_);
      if (length < 0 && errno == EINTR) continue;
      // A pipe handed over non-blocking: wait for it, as a reader of a stream.
      if (length < 0 && errno == EAGAIN) {
        pollfd wanted = {fd_, POLLIN, 0};
        ::poll(&wanted, 1, -1);
        continue;
      }
      if (length < 0) return error(errno);
      bytes_ += static_cast<std::uint64_t>(length);
      if (bytes_ > archive_input_limit) return error(EFBIG);
      crypto_generichash_update(&state_, buffer_, static_cast<std::size_t>(length));
      return length;
    }
  }

  la_ssize_t error(int error) {
    error_ = error;
    return -1;
  }

  int fd_;
  int error_ = 0;
  std::uint64_t bytes_ = 0;
  crypto_generichash_state state_;
  unsigned char buffer_[65536];
};

using archive_handle = std::unique_ptr<archive, decltype(&archive_read_free)>;

// Gives a made file or directory its mode, and root as its owner when root
// makes it (a set-group-ID parent would give another group).
void settle(int fd, mode_t mode, const std::string& name) {
  if (::fchmod(fd, mode) != 0 || (::geteuid() == 0 && ::fchown(fd, 0, 0) != 0))
    fail("cannot write " + escaped(name), errno);
}

// The directories made under the target, found again by descriptor.
class kav_made_tree {
 public:
  explicit kav_made_tree(int target) : target_(target) {}

  // The directory `path` below the target ("" for the target), made 0700 with
  // its parents where missing, never through a link; owned by `fd`.
  int directory(const std::string& path, bool make) {
    if (path == cached_path_ && cached_) return cached_->get();
    std::optional<unique_fd> at;
    std::size_t start = 0;
    while (start < path.size()) {
      const std::size_t end = std::min(path.find('/', start), path.size());
      const std::string part = path.substr(start, end - start);
      const int parent = at ? at->get() : target_;
      if (make && ::mkdirat(parent, part.c_str(), 0700) == 0)
        made_.push_back(path.substr(0, end));
      else if (make && errno != EEXIST)
        fail("cannot write " + escaped(path.substr(0, end)), errno);
      const int fd = ::openat(parent, part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
      if (fd < 0) fail("cannot write " + escaped(path.substr(0, end)), errno);
      at.emplace(fd);
      start = end + 1;
    }
    if (!at) return target_;
    cached_path_ = path;
    cached_.reset();
    cached_.emplace(::dup(at->get()));
    if (!cached_->valid()) fail("cannot write " + escaped(path), errno);
    return cached_->get();
  }

  // Opens every directory made to others, now that the tree is whole.
  void settle_directories() {
    for (const std::string& path : made_) settle(directory(path, false), directory_mode, path);
  }

 private:
  int target_;
  std::string cached_path_;
  std::optional<unique_fd> cached_;
  std::vector<std::string> made_;
};

// An entry's name without "." and empty parts; refuses an absolute one and "..".
std::string clean_name(const char* raw) {
  const std::string name = raw == nullptr ? "" : raw;
  if (raw == nullptr) throw kav_failure("an entry has no name");
  if (!name.empty() && name[0] == '/')
    throw kav_failure(escaped(name) + " is an absolute name: names are relative to the top");
  std::string clean;
  for (std::size_t start = 0; start <= name.size();) {
    const std::size_t end = std::min(name.find('/', start), name.size());
    const std::string part = name.substr(start, end - start);
    if (part == "..") throw kav_failure(escaped(name) + " leads out of the data set: it holds ..");
    if (!part.empty() && part != ".") clean += (clean.empty() ? "" : "/") + part;
    start = end + 1;
  }
  return clean;
}

class kav_unpacker {
 public:
  kav_unpacker(int input, int target, kav_layout layout)
      : input_(input), tree_(target), layout_(layout) {
    struct statvfs space;
    if (::fstatvfs(target, &space) != 0) fail("cannot write the data set", errno);
    free_ = static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
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
    result_.digest = input_.digest();
    return result_;
  }

 private:
  [[noreturn]] void refuse_read(archive* a) {
    input_.fail_read();
    const char* why = a == nullptr ? nullptr : archive_error_string(a);
    throw kav_failure("cannot read the archive: " +
                      (why == nullptr ? std::string("out of memory") : escaped(why)));
  }

  void take(archive* a, archive_entry* entry) {
    if (++result_.entries > archive_entry_limit)
      throw kav_failure("the archive holds more than " + std::to_string(archive_entry_limit) +
                        " entries");
    const std::string name = clean_name(archive_entry_pathname(entry));
    const std::size_t slash = name.find('/');
    const std::string top = name.substr(0, slash);
    const mode_t type = archive_entry_filetype(entry);
    result_.newest = std::max<std::int64_t>(result_.newest, archive_entry_mtime(entry));
    if (layout_ == kav_layout::release) return make(a, entry, name, name, type);
    const std::string below = slash == std::string::npos ? "" : name.substr(slash + 1);
    if (result_.top.empty() && !name.empty()) {
      if (const std::string problem =
              version_name_problem(top, ": the archive's top directory names the data set");
          !problem.empty())
        throw kav_failure(problem);
      result_.top = top;
    }
    if (top != result_.top || (below.empty() && type != AE_IFDIR))
      throw kav_failure("the archive holds " + escaped(result_.top) + " and " + escaped(name) +
                        ": a data set is one top directory");
    make(a, entry, name, below, type);
  }

  // Makes the entry `name` at `below`, relative to the target.
  void make(archive* a, archive_entry* entry, const std::string& name, const std::string& below,
            mode_t type) {
    if (archive_entry_hardlink(entry) != nullptr)
      throw kav_failure(escaped(name) + " is a hard link: only files, directories and links");
    if (type == AE_IFREG && archive_entry_sparse_count(entry) > 0)
      throw kav_failure(escaped(name) + " is a sparse file: only files, directories and links");
    if (type == AE_IFDIR) {
      tree_.directory(below, true);
    } else if (type == AE_IFLNK) {
      make_link(below, archive_entry_symlink(entry));
    } else if (type == AE_IFREG) {
      make_file(a, below, archive_entry_size(entry));
    } else {
      throw kav_failure(escaped(name) + " is neither a file, a directory nor a link");
    }
  }

  // The directory that holds `path`, and the last part of `path`.
  int parent(const std::string& path, std::string& last) {
    const std::size_t slash = path.rfind('/');
    last = path.substr(slash == std::string::npos ? 0 : slash + 1);
    return tree_.directory(slash == std::string::npos ? "" : path.substr(0, slash), true);
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
    used_ += (bytes + block_ - 1) / block_ * block_ + block_;
    if (used_ + archive_free_margin > free_)
      throw kav_failure("the archive does not fit: " + size_words(free_) +
                        " are free, and unpacking it leaves less than " +
                        size_words(archive_free_margin));
  }

  void make_file(archive* a, const std::string& path, std::int64_t size) {
    reserve(path, size);
    std::string last;
    const int at = parent(path, last);
    unique_fd out(::openat(at, last.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!out.valid()) refuse_write(path, errno);
    char buffer[65536];
    for (la_ssize_t length; (length = archive_read_data(a, buffer, sizeof buffer)) != 0;) {
      if (length < 0) refuse_read(a);
      for (const char* next = buffer; length > 0;) {
        const ssize_t written = ::write(out.get(), next, static_cast<std::size_t>(length));
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail("cannot write " + escaped(path), errno);
        next += written;
        length -= written;
      }
    }
    settle(out.get(), file_mode, path);
    if (out.close() != 0) fail("cannot write " + escaped(path), errno);
  }

  void make_link(const std::string& path, const char* target) {
    const std::string content = target == nullptr ? "" : target;
    if (!stays_inside(path, content))
      throw kav_failure(escaped(path) + " leads out of the data set: " + escaped(content));
    reserve(path, 0);
    std::string last;
    const int at = parent(path, last);
    if (::symlinkat(content.c_str(), at, last.c_str()) != 0) refuse_write(path, errno);
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


kav_unpacked unpack_archive(int input, int target, kav_layout layout) {
  return kav_unpacker(input, target, layout).run();
}

}  // namespace kav
