#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <vector>

namespace kav {

// Whoever provides a source tree or file: the owner of its top. Root reads
// what it is given with the provider's rights, never its own, so that no
// link, hard link or swapped directory can show root's files through it.
class kav_provider {
 public:
  // The owner of what `top` describes. Only root changes identity: for root
  // reading another user's top, the supplementary groups are dropped for as
  // long as this lives; anyone else reads as itself. Throws kav_failure, naming `what`, when the
  // provider's identity cannot be taken (no CAP_SETUID, an unmapped user).
  kav_provider(const struct stat& top, const char* what);
  kav_provider(const kav_provider&) = delete;
  kav_provider& operator=(const kav_provider&) = delete;
  ~kav_provider();

  // openat(2) with the provider's file-system identity.
  int open_at(int directory, const char* name, int flags) const;
  // Whether reads are this process's own: not root, or root's own top.
  bool as_self() const { return as_self_; }
  uid_t uid() const { return uid_; }

  // While it lives, every file-system call of this thread is checked as the
  // provider's, for code that reads by path (check's judgement).
  class kav_acting {
   public:
    explicit kav_acting(const kav_provider& provider);
    kav_acting(const kav_acting&) = delete;
    kav_acting& operator=(const kav_acting&) = delete;
    ~kav_acting();

   private:
    const kav_provider& provider_;
  };

 private:
  void become() const;
  void return_to_self() const;

  uid_t uid_;
  gid_t gid_;
  bool as_self_;
  std::vector<gid_t> groups_;  // ours, given back at the end
};

}  // namespace kav
