// Few descriptors that the process may still open, for as long as the object lives.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>

#include <vector>

#include "platform/linux/FileDescriptor.h"

namespace tulo::test {

class DescriptorShortage {
 public:
  // `left`: so many more can be open at a time.
  explicit DescriptorShortage(int left) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    // The next numbers that would be given; the limit is on the number, not on how many there are.
    std::vector<FileDescriptor> next;
    for (int i = 0; i <= left; ++i)
      next.emplace_back(::open("/", O_PATH | O_CLOEXEC));
    const rlimit few{static_cast<rlim_t>(next.back().get()), before_.rlim_max};
    next.clear();
    ::setrlimit(RLIMIT_NOFILE, &few);
  }
  ~DescriptorShortage() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  DescriptorShortage(const DescriptorShortage&) = delete;
  DescriptorShortage& operator=(const DescriptorShortage&) = delete;

 private:
  rlimit before_ = {};
};

}  // namespace tulo::test
