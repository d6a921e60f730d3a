#include "kavdata/building/files.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/unique_fd.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/io.h"
#include "kavdata/walks/limits.h"
#include "kavdata/walks/words.h"

namespace kav {

std::string read_file_at(int directory, const std::string& name, const std::string& shown,
                         std::int64_t& newest) {
  const unique_fd fd(
      ::openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status;
  if (!fd.valid() && errno == ENOENT) throw kav_failure(shown + " is missing");
  if (!fd.valid() || ::fstat(fd.get(), &status) != 0) fail("cannot read " + shown, errno);
  if (!S_ISREG(status.st_mode)) throw kav_failure(shown + " is not a regular file");
  if (static_cast<std::uint64_t>(status.st_size) > archive_file_limit)
    throw kav_failure(shown + " is larger than " + size_words(archive_file_limit));
  newest = std::max<std::int64_t>(newest, status.st_mtime);
  const std::size_t size = static_cast<std::size_t>(status.st_size);
  std::string bytes;
  bytes.reserve(size);
  if (const int error = read_at_most(fd.get(), size, bytes); error != 0)
    fail("cannot read " + shown, error);
  if (bytes.size() != size) throw kav_failure(shown + " changed while it was read");
  return bytes;
}

void write_file_at(int directory, const std::string& name, const std::string& bytes,
                   const std::string& shown) {
  unique_fd fd(::openat(directory, name.c_str(),
                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!fd.valid() && errno == EEXIST)
    throw kav_failure(shown + " is made twice: the input names a zone so");
  if (!fd.valid()) fail("cannot write " + shown, errno);
  write_all(fd.get(), bytes.data(), bytes.size(), shown);
  if (fd.close() != 0) fail("cannot write " + shown, errno);
}

void write_file(const std::string& path, const std::string& bytes) {
  write_file_at(AT_FDCWD, path, bytes, escaped(path));
}

}  // namespace kav
