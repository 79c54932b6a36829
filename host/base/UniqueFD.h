// The owner of one file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace tulo::host {

class UniqueFD {
 public:
  UniqueFD() = default;
  explicit UniqueFD(int fd) : fd_(fd) {}
  UniqueFD(UniqueFD&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFD& operator=(UniqueFD&& other) noexcept {
    if (this != &other) reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ~UniqueFD() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace tulo::host
