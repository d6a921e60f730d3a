#include "kavdata/archives/spool.h"

#include <cerrno>
#include <fcntl.h>
#include <sodium.h>
#include <sys/mman.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "kavdata/walks/failure.h"
#include "kavdata/walks/io.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

// A file without a name beside `near`, or in memory where its file system
// cannot make one; `on_disk` says which.
unique_fd anonymous_file(int near, const std::string& near_path, bool& on_disk) {
  unique_fd fd(::openat(near, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  on_disk = fd.valid();
  if (!fd.valid() && errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)
    fail("cannot write " + escaped(near_path), errno);
  if (!fd.valid()) fd = unique_fd(::memfd_create("kavdata-archive", MFD_CLOEXEC));
  if (!fd.valid()) fail("cannot hold the archive in memory", errno);
  return fd;
}

}  // namespace

kav_spool spool_archive(int input, int near, const std::string& near_path) {
  if (sodium_init() < 0) throw kav_failure("cannot start the hashing library");
  kav_spool spool;
  bool on_disk = false;
  spool.fd = anonymous_file(near, near_path, on_disk);
  struct statvfs space;
  if (on_disk && ::fstatvfs(near, &space) != 0) fail("cannot write " + escaped(near_path), errno);
  const std::uint64_t block = on_disk && space.f_frsize != 0 ? space.f_frsize : 4096;
  const std::uint64_t free = on_disk ? std::uint64_t(space.f_bavail) * space.f_frsize : UINT64_MAX;
  crypto_generichash_state state;
  crypto_generichash_init(&state, nullptr, 0, crypto_generichash_BYTES_MAX);
  std::uint64_t bytes = 0, used = 0;
  unsigned char buffer[65536];
  for (ssize_t length; (length = read_stream(input, buffer, sizeof buffer)) != 0;) {
    if (length < 0) fail("cannot read the archive", errno);
    bytes += static_cast<std::uint64_t>(length);
    if (bytes > archive_input_limit)
      throw kav_failure("the archive is larger than " + size_words(archive_input_limit));
    used = (bytes + block - 1) / block * block;
    if (on_disk && used + archive_free_margin > free)
      throw kav_failure("the archive does not fit: " + size_words(free) +
                        " are free, and holding it leaves less than " +
                        size_words(archive_free_margin));
    crypto_generichash_update(&state, buffer, static_cast<std::size_t>(length));
    write_all(spool.fd.get(), reinterpret_cast<const char*>(buffer),
              static_cast<std::size_t>(length), "the archive in " + escaped(near_path));
  }
  crypto_generichash_final(&state, spool.digest.data(), spool.digest.size());
  if (::lseek(spool.fd.get(), 0, SEEK_SET) != 0) fail("cannot read the archive", errno);
  if (on_disk) spool.free_space = free - used;
  return spool;
}

}  // namespace kav
