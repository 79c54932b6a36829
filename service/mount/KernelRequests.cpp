#include "service/mount/KernelRequests.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

#include "service/mount/MountPoint.h"

namespace tulo {

KernelRequests::KernelRequests(fuse_session* session, unsigned slots)
    : session_(session),
      device_(fuse_session_fd(session)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      buffers_(slots) {
  const int flags = ::fcntl(device_, F_GETFL);
  if (!wake_ || flags < 0 || ::fcntl(device_, F_SETFL, flags | O_NONBLOCK) != 0) {
    throw MountError("cannot wait for the kernel's requests");
  }
}

KernelRequests::~KernelRequests() {
  // libfuse allocates them.
  for (fuse_buf& buffer : buffers_)
    std::free(buffer.mem);
}

RequestSource::Taken KernelRequests::take(unsigned slot) {
  ++busy_;
  const int result = fuse_session_receive_buf(session_, &buffers_[slot]);
  if (result > 0) return Taken::request;
  --busy_;
  return result == -EAGAIN || result == -EINTR ? Taken::nothing : Taken::end;
}

void KernelRequests::await() {
  std::array<pollfd, 2> descriptors = {{{device_, POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
  ::poll(descriptors.data(), descriptors.size(), -1);
}

void KernelRequests::wake() {
  ::eventfd_write(wake_.get(), 1);
}

// Counted from before a request is taken, so that none is overlooked between the two.
bool KernelRequests::isIdle() const {
  const std::uint64_t handled = handled_;
  pollfd device = {device_, POLLIN, 0};
  const bool waits = ::poll(&device, 1, 0) > 0 && (device.revents & POLLIN) != 0;
  return !waits && busy_ == 0 && handled == handled_;
}

void KernelRequests::handle(unsigned slot) {
  fuse_session_process_buf(session_, &buffers_[slot]);
  ++handled_;
  --busy_;
}

}  // namespace tulo
