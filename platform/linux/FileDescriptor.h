// The one owner of a file descriptor.
//
// Threads: an object belongs to one thread at a time.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tulo {

// Closes the descriptor that it holds, leaving errno as it is; -1 holds none.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  ~FileDescriptor() { reset(); }
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int get() const { return descriptor_; }
  explicit operator bool() const { return descriptor_ >= 0; }
  // The caller closes what is returned.
  int release() { return std::exchange(descriptor_, -1); }
  // Holds another one from now on, or none.
  void reset(int descriptor = -1) {
    const int former = std::exchange(descriptor_, descriptor);
    if (former < 0) return;
    const int savedError = errno;
    ::close(former);
    errno = savedError;
  }

 private:
  int descriptor_ = -1;
};

}  // namespace tulo
