#pragma once

namespace kav {

// While it lives, the warnings that the boot program's code writes to
// standard error go nowhere: kavdata calls that code to learn what a start
// would find, then says what it found in words of its own. Needs no /dev:
// standard error points at a descriptor that cannot be written.
class kav_muted_warnings {
 public:
  kav_muted_warnings();
  kav_muted_warnings(const kav_muted_warnings&) = delete;
  kav_muted_warnings& operator=(const kav_muted_warnings&) = delete;
  ~kav_muted_warnings();

 private:
  int saved_;
};

}  // namespace kav
