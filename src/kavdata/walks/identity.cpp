#include "kavdata/walks/identity.h"

#include <cerrno>
#include <fcntl.h>
#include <grp.h>
#include <string>
#include <sys/fsuid.h>
#include <unistd.h>

#include "kavdata/walks/failure.h"

namespace kav {
namespace {

// setfsuid(2) and setfsgid(2) say nothing of failure: asking again with an
// impossible value returns the identity in force.
bool set_fs_identity(uid_t uid, gid_t gid) {
  ::setfsgid(gid);
  ::setfsuid(uid);
  return static_cast<uid_t>(::setfsuid(static_cast<uid_t>(-1))) == uid &&
         static_cast<gid_t>(::setfsgid(static_cast<gid_t>(-1))) == gid;
}

}  // namespace

kav_provider::kav_provider(const struct stat& top, const char* what)
    : uid_(top.st_uid), gid_(top.st_gid), as_self_(top.st_uid == ::geteuid() || ::geteuid() != 0) {
  if (as_self_) return;
  const int count = ::getgroups(0, nullptr);
  groups_.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  if (count < 0 || ::getgroups(count, groups_.data()) != count || ::setgroups(0, nullptr) != 0)
    fail(std::string("cannot read ") + what + " as its owner, user " + std::to_string(uid_), errno);
  const bool taken = set_fs_identity(uid_, gid_);
  return_to_self();
  if (!taken)
    fail(std::string("cannot read ") + what + " as its owner, user " + std::to_string(uid_), EPERM);
}

kav_provider::~kav_provider() {
  if (!as_self_) ::setgroups(groups_.size(), groups_.data());
}

void kav_provider::become() const {
  if (!as_self_) set_fs_identity(uid_, gid_);
}

void kav_provider::return_to_self() const {
  if (!as_self_) set_fs_identity(::geteuid(), ::getegid());
}

int kav_provider::open_at(int directory, const char* name, int flags) const {
  become();
  const int fd = ::openat(directory, name, flags | O_CLOEXEC);
  const int error = errno;
  return_to_self();
  errno = error;
  return fd;
}

kav_provider::kav_acting::kav_acting(const kav_provider& provider) : provider_(provider) {
  provider_.become();
}

kav_provider::kav_acting::~kav_acting() { provider_.return_to_self(); }

}  // namespace kav
