#include "kavdata/writers/lock.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "fs/paths.h"
#include "kavdata/walks/failure.h"
#include "kavdata/walks/words.h"
#include "kavdata/writers/staging.h"

namespace kav {
namespace {

// " (COMMAND LINE)" of process `pid`, its arguments parted by spaces, at
// most its first KiB, escaped: it is the holder's to choose; or empty.
std::string command_line(int pid) {
  const unique_fd fd(::open(("/proc/" + std::to_string(pid) + "/cmdline").c_str(),
                            O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  char bytes[1024];
  const ssize_t length = fd.valid() ? ::read(fd.get(), bytes, sizeof bytes) : -1;
  if (length <= 0) return {};
  std::string command(bytes, static_cast<std::size_t>(length));
  while (!command.empty() && command.back() == '\0') command.pop_back();
  for (char& c : command) c = c == '\0' ? ' ' : c;
  return " (" + escaped(command) + ")";
}

// The process that holds the flock on the file `lock`, and its command line,
// as /proc/locks and /proc/PID/cmdline tell; empty where they are not to be
// seen (in a sandbox, say).
std::string holder(const struct stat& lock) {
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    int pid;
    unsigned major_number, minor_number;
    unsigned long inode;
    if (std::sscanf(line.c_str(), "%*d: FLOCK %*s %*s %d %x:%x:%lu", &pid, &major_number,
                    &minor_number, &inode) != 4 ||
        inode != lock.st_ino || makedev(major_number, minor_number) != lock.st_dev)
      continue;
    return "process " + std::to_string(pid) + command_line(pid);
  }
  return {};
}

}  // namespace

kav_lock::kav_lock()
    : fd_(::open(staging::lock_file, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)) {
  if (!fd_.valid()) fail(std::string("cannot open ") + staging::lock_file, errno);
  if (::flock(fd_.get(), LOCK_EX | LOCK_NB) == 0) return;
  struct stat lock;
  const std::string who = ::fstat(fd_.get(), &lock) == 0 ? holder(lock) : "";
  std::fprintf(stderr, "%s: waiting for %s, which holds %s\n", program_invocation_short_name,
               who.empty() ? "another command" : who.c_str(), staging::lock_file);
  while (::flock(fd_.get(), LOCK_EX) != 0)
    if (errno != EINTR) fail(std::string("cannot lock ") + staging::lock_file, errno);
}

kav_lock lock_for_change() {
  if (::geteuid() != 0) throw kav_failure("only root can change the data sets");
  struct stat directory;
  if (::stat(paths::update_parent, &directory) != 0)
    fail(std::string(paths::update_parent) + " cannot be used", errno);
  if (!S_ISDIR(directory.st_mode))
    throw kav_failure(std::string(paths::update_parent) + " is not a directory");
  return kav_lock();
}

}  // namespace kav
