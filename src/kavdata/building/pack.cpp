#include "kavdata/building/pack.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "fs/unique_fd.h"
#include "fs/walk.h"
#include "kavdata/device/device.h"
#include "kavdata/judgement/check.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/identity.h"
#include "kavdata/walks/scratch.h"
#include "kavdata/walks/source.h"
#include "kavdata/walks/tree_copy.h"
#include "kavdata/walks/words.h"

namespace kav {
namespace {

struct kav_packed_entry {
  std::string name;  // "VERSION/..."
  std::string path;  // where it is read
  mode_t type;
  std::int64_t size;
};

// The time of every entry.
time_t fixed_time() {
  const char* const epoch = std::getenv("SOURCE_DATE_EPOCH");
  if (epoch == nullptr || *epoch == '\0') return 0;
  char* end;
  errno = 0;
  const long long seconds = std::strtoll(epoch, &end, 10);
  if (*end != '\0' || errno != 0 || seconds < 0)
    throw kav_failure("SOURCE_DATE_EPOCH is not a number of seconds: " + escaped(epoch));
  return static_cast<time_t>(seconds);
}

// zoneinfo/ and icutz/ of `top`, in byte order of their names.
std::vector<kav_packed_entry> entries(const std::string& top, const std::string& version) {
  std::vector<kav_packed_entry> found = {{version, top, AE_IFDIR, 0}};
  for (const char* part : {"zoneinfo", "icutz"}) {
    const walk_handle walk = open_walk(top + "/" + part, FTS_PHYSICAL | FTS_NOCHDIR);
    if (!walk) fail("cannot read " + escaped(top + "/" + part), errno);
    while (const FTSENT* entry = fts_read(walk.get())) {
      const std::string name = version + std::string(entry->fts_path).substr(top.size());
      const std::int64_t size = entry->fts_statp->st_size;
      switch (entry->fts_info) {
        case FTS_D: found.push_back({name, entry->fts_path, AE_IFDIR, 0}); break;
        case FTS_F: found.push_back({name, entry->fts_path, AE_IFREG, size}); break;
        case FTS_SL: case FTS_SLNONE:
          found.push_back({name, entry->fts_path, AE_IFLNK, 0});
          break;
        case FTS_DP: break;
        default: fail("cannot read " + escaped(entry->fts_path), entry->fts_errno);
      }
    }
  }
  std::sort(found.begin(), found.end(),
            [](const kav_packed_entry& a, const kav_packed_entry& b) { return a.name < b.name; });
  return found;
}

using writer_handle = std::unique_ptr<archive, decltype(&archive_write_free)>;
using entry_handle = std::unique_ptr<archive_entry, decltype(&archive_entry_free)>;

[[noreturn]] void refuse_write(archive* a, const std::string& what) {
  const char* const why = archive_error_string(a);
  throw kav_failure("cannot write " + what + ": " + (why == nullptr ? "out of memory" : escaped(why)));
}

void write_contents(archive* a, const kav_packed_entry& entry, const std::string& what) {
  const unique_fd in(::open(entry.path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status;
  if (!in.valid() || ::fstat(in.get(), &status) != 0) fail("cannot read " + escaped(entry.path), errno);
  if (!S_ISREG(status.st_mode) || status.st_size != entry.size)
    throw kav_failure(escaped(entry.path) + " changed while it was packed");
  char buffer[65536];
  std::int64_t left = entry.size;
  while (left > 0) {
    const ssize_t length = ::read(in.get(), buffer, sizeof buffer);
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) fail("cannot read " + escaped(entry.path), errno);
    if (length == 0 || length > left) throw kav_failure(escaped(entry.path) + " changed while it was packed");
    if (archive_write_data(a, buffer, static_cast<std::size_t>(length)) != length)
      refuse_write(a, what);
    left -= length;
  }
}

void write_archive(int fd, const std::vector<kav_packed_entry>& found, const std::string& what) {
  const time_t when = fixed_time();
  const writer_handle writer(archive_write_new(), &archive_write_free);
  archive* const a = writer.get();
  if (a == nullptr || archive_write_set_format_pax_restricted(a) != ARCHIVE_OK ||
      archive_write_add_filter_zstd(a) != ARCHIVE_OK ||
      archive_write_set_filter_option(a, "zstd", "compression-level", "19") != ARCHIVE_OK ||
      archive_write_set_bytes_in_last_block(a, 1) != ARCHIVE_OK ||
      archive_write_open_fd(a, fd) != ARCHIVE_OK)
    refuse_write(a, what);
  for (const kav_packed_entry& entry : found) {
    const entry_handle header(archive_entry_new(), &archive_entry_free);
    archive_entry* const e = header.get();
    archive_entry_set_pathname(e, entry.name.c_str());
    archive_entry_set_filetype(e, entry.type);
    archive_entry_set_perm(e, entry.type == AE_IFDIR ? 0755 : entry.type == AE_IFREG ? 0644 : 0777);
    archive_entry_set_uid(e, 0);
    archive_entry_set_gid(e, 0);
    archive_entry_set_mtime(e, when, 0);
    archive_entry_set_size(e, entry.size);
    if (entry.type == AE_IFLNK) archive_entry_set_symlink(e, link_content(entry.path).c_str());
    if (archive_write_header(a, e) != ARCHIVE_OK) refuse_write(a, what);
    if (entry.type == AE_IFREG) write_contents(a, entry, what);
  }
  if (archive_write_close(a) != ARCHIVE_OK) refuse_write(a, what);
}

// Writes the archive to `path` under a temporary name, renamed when whole.
void write_file(const std::string& path, const std::vector<kav_packed_entry>& found) {
  std::string temporary = path + ".XXXXXX";
  const unique_fd fd(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd.valid()) fail("cannot write " + escaped(path), errno);
  try {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    write_archive(fd.get(), found, escaped(path));
    if (::fchmod(fd.get(), 0666 & ~mask) != 0 || ::fsync(fd.get()) != 0 ||
        ::rename(temporary.c_str(), path.c_str()) != 0)
      fail("cannot write " + escaped(path), errno);
  } catch (const kav_failure&) {
    ::unlink(temporary.c_str());
    throw;
  }
}

// Copies the data set `directory` into `scratch` as its owner reads it, by
// descriptor, and returns the version it is packed as: what is judged and
// packed then is the copy, which no one else can change.
std::string copy_source(const std::string& directory, const std::string& as,
                        const kav_scratch& scratch) {
  std::string name;
  const unique_fd source(open_given(directory, O_RDONLY | O_DIRECTORY | O_NONBLOCK, &name));
  struct stat status;
  if (!source.valid() || ::fstat(source.get(), &status) != 0) {
    if (errno == ENOENT) throw kav_failure(escaped(directory) + " does not exist");
    if (errno == ENOTDIR) throw kav_failure(escaped(directory) + " is not a directory");
    fail("cannot read " + escaped(directory), errno);
  }
  char resolved[PATH_MAX];
  if (name.empty() && ::realpath(directory.c_str(), resolved) != nullptr)
    name = std::strrchr(resolved, '/') + 1;
  const kav_provider provider(status, escaped(directory).c_str());
  kav_copy_limits limits;
  limits.free_space = usable_space(scratch.fd());
  // The copy's modes are exact, whatever the umask.
  const mode_t mask = ::umask(0);
  try {
    copy_tree(provider, source.get(), directory, scratch.fd(), scratch.path(), limits);
  } catch (const kav_failure&) {
    ::umask(mask);
    throw;
  }
  ::umask(mask);
  return as.empty() ? name : as;
}

void pack(const std::string& directory, const std::string& as, const std::string& output) {
  const kav_scratch scratch("pack");
  const kav_check check = check_contents(scratch.path(), copy_source(directory, as, scratch));
  for (std::size_t i = 0; i + 1 < check.reasons.size(); ++i)
    tell("pack", check.reasons[i]);
  if (!check.reasons.empty()) throw kav_failure(check.reasons.back());
  const std::vector<kav_packed_entry> found = entries(scratch.path(), check.version_string);
  if (output == "-") return write_archive(STDOUT_FILENO, found, "standard output");
  const std::string path = output.empty() ? check.version_string + ".tar.zst" : output;
  write_file(path, found);
  struct stat status;
  const std::uint64_t size = ::stat(path.c_str(), &status) == 0 ? status.st_size : 0;
  std::printf("packed %s as %s (%s)\n", escaped(check.version_string).c_str(),
              escaped(path).c_str(), size_words(size).c_str());
}

}  // namespace

int pack_data_set(const std::string& directory, const std::string& as, const std::string& output) {
  try {
    pack(directory, as, output);
    return 0;
  } catch (const kav_failure& failure) {
    tell("pack", failure.what());
    return 1;
  }
}

}  // namespace kav
