#include "kavdata/device/device.h"

#include <algorithm>
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

#include "components/first_word.h"
#include "components/kav_icu.h"
#include "components/kav_zoneinfo.h"
#include "dataset/dataset_links.h"
#include "dataset/update_root.h"
#include "fs/file_ops.h"
#include "fs/unique_fd.h"
#include "fs/walk.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/words.h"

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
  const unique_fd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC));
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

// Opens a file to read it without waiting, whatever it is, with its status
// in `status`; -1 with errno.
int open_to_read(const std::string& path, bool follow, struct stat& status) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW));
  if (fd < 0 || ::fstat(fd, &status) == 0) return fd;
  const int error = errno;
  ::close(fd);
  errno = error;
  return -1;
}

// Reads on from `fd` until `more` returns false, the file ends or at least
// `bound` bytes are read. Returns the bytes read, or -1 with errno.
template <class F>
long long read_while(int fd, std::size_t bound, F more) {
  char buffer[65536];
  std::size_t total = 0;
  while (total < bound) {
    const ssize_t length = ::read(fd, buffer, std::min(sizeof buffer, bound - total));
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return -1;
    total += static_cast<std::size_t>(length);
    if (length == 0 || !more(buffer, static_cast<std::size_t>(length))) break;
  }
  return static_cast<long long>(total);
}

// "4 MiB", "4 KiB": a bound in words.
std::string bound_words(std::size_t bound) {
  if (bound % (std::size_t{1} << 20) == 0) return std::to_string(bound >> 20) + " MiB";
  return std::to_string(bound >> 10) + " KiB";
}

// A regular file's content, or EFBIG past read_bound.
std::string file_content(const std::string& path, int& error) {
  struct stat status;
  const unique_fd fd(open_to_read(path, false, status));
  if (!fd.valid()) {
    error = errno;
    return {};
  }
  if (!S_ISREG(status.st_mode)) {
    error = EINVAL;
    return {};
  }
  std::string content;
  const long long length =
      read_while(fd.get(), read_bound + 1, [&](const char* bytes, std::size_t size) {
        content.append(bytes, size);
        return true;
      });
  if (length < 0) error = errno;
  if (content.size() > read_bound) {
    error = EFBIG;
    content.clear();
  }
  return content;
}

// The errno of reading the file at `path` as the boot program reads it; 0
// when it can be read.
int read_error(const std::string& path) { return read_word(path, 1, true).error; }

// A file that the boot program's code, building a data set, met and would
// hang on: not a regular file.
class kav_unreadable_file : public kav_failure {
 public:
  kav_unreadable_file(const std::string& path, const std::string& problem)
      : kav_failure(escaped(path) + " " + problem), path_(path), problem_(problem) {}
  const std::string& path() const { return path_; }
  const std::string& problem() const { return problem_; }

 private:
  std::string path_, problem_;
};

// While a data set is built, the components read first words with
// read_word: through a final link as the boot program does, or not; the
// first file whose word runs past the bound is kept.
bool follow_final_links = true;
std::string long_word_file, long_word_words;

std::string bounded_first_word(const std::string& path) {
  kav_word_read read = read_word(path, read_bound, follow_final_links);
  if (read.problem.empty()) return read.word;
  if (read.hangs) throw kav_unreadable_file(path, read.problem);
  if (long_word_file.empty()) {
    long_word_file = path;
    long_word_words = read.problem + ": the start reads it whole";
  }
  return read.word;
}

// While it lives, the components read first words with bounded_first_word.
class kav_bounded_reads {
 public:
  explicit kav_bounded_reads(bool follow)
      : replaced_(replace_first_word_reader(bounded_first_word)) {
    follow_final_links = follow;
    long_word_file.clear();
  }
  kav_bounded_reads(const kav_bounded_reads&) = delete;
  kav_bounded_reads& operator=(const kav_bounded_reads&) = delete;
  ~kav_bounded_reads() {
    replace_first_word_reader(replaced_);
    follow_final_links = true;
  }

 private:
  first_word_reader replaced_;
};

kav_link_read read_link(const std::string& path) {
  kav_link_read link;
  try {
    link.content = read_symlink(path);
  } catch (int error) {
    link.error = error;
  }
  return link;
}

// Builds with `make`, reading first words through a final link or not,
// putting what the data set throws into words.
template <class F>
kav_built build(F make, bool follow) {
  kav_built built;
  const kav_bounded_reads bounded(follow);
  try {
    built.dataset.emplace(make());
    built.obstacle = long_word_file;
    built.obstacle_words = long_word_words;
  } catch (const kav_unreadable_file& unreadable) {
    built.failure = unreadable.what();
    built.obstacle = unreadable.path();
    built.obstacle_words = unreadable.problem() + ": the start may wait on it forever";
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

kav_word_read read_word(const std::string& path, std::size_t bound, bool follow) {
  kav_word_read read;
  struct stat status;
  const unique_fd fd(open_to_read(path, follow, status));
  if (!fd.valid()) {
    read.error = errno;
  } else if (S_ISDIR(status.st_mode)) {
    read.error = EISDIR;  // what the boot program's read of it fails with
  } else if (!S_ISREG(status.st_mode)) {
    read.problem = "is not a regular file";
    read.hangs = true;
  } else {
    bool ended = false;
    const long long length =
        read_while(fd.get(), bound + 1, [&](const char* bytes, std::size_t size) {
          for (const char* c = bytes; c != bytes + size; ++c) {
            if (!is_word_space(*c))
              read.word.push_back(*c);
            else if ((ended = !read.word.empty()))
              return false;
          }
          return true;
        });
    if (length < 0) read.error = errno;
    if (!ended && length > static_cast<long long>(bound))
      read.problem = "has no word that ends within its first " + bound_words(bound);
  }
  return read;
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
  kav_built built =
      build([&] { return root.empty() ? kav_dataset() : kav_dataset(root); }, true);
  find_read_errors(built);
  return built;
}

kav_built build_data_set(const std::string& root, const std::string& version_string) {
  kav_built built = build([&] { return kav_dataset(root, version_string); }, false);
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
