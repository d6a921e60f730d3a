#include "kavdata/building/files.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fs/unique_fd.h"
#include "kavdata/walks/failure.h"
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
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t length = 0;
  while (length < bytes.size()) {
    const ssize_t got = ::read(fd.get(), bytes.data() + length, bytes.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail("cannot read " + shown, errno);
    if (got == 0) throw kav_failure(shown + " changed while it was read");
    length += static_cast<std::size_t>(got);
  }
  return bytes;
}

void write_file_at(int directory, const std::string& name, const std::string& bytes,
                   const std::string& shown) {
  unique_fd fd(::openat(directory, name.c_str(),
                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (!fd.valid() && errno == EEXIST)
    throw kav_failure(shown + " is made twice: the input names a zone so");
  if (!fd.valid()) fail("cannot write " + shown, errno);
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written = ::write(fd.get(), bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) fail("cannot write " + shown, errno);
    done += static_cast<std::size_t>(written);
  }
  if (fd.close() != 0) fail("cannot write " + shown, errno);
}

void write_file(const std::string& path, const std::string& bytes) {
  write_file_at(AT_FDCWD, path, bytes, escaped(path));
}

}  // namespace kav
