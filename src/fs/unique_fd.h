#pragma once

#include <unistd.h>

namespace kav {

// Owns one file descriptor and closes it when it goes out of scope.
class unique_fd {
 public:
  explicit unique_fd(int fd) : fd_(fd) {}
  unique_fd(const unique_fd&) = delete;
  unique_fd& operator=(const unique_fd&) = delete;
  unique_fd(unique_fd&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  unique_fd& operator=(unique_fd&& other) noexcept {
    if (this != &other) {
      if (fd_ >= 0) ::close(fd_);
      fd_ = other.fd_;
      other.fd_ = -1;
    }
    return *this;
  }
  ~unique_fd() {
    if (fd_ >= 0) ::close(fd_);
  }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

  // Closes now, for callers that must know whether the close succeeded.
  int close() {
    const int fd = fd_;
    fd_ = -1;
    return ::close(fd);
  }

 private:
  int fd_;
};

}  // namespace kav
