// The kernel's requests, as RequestLoop takes them. Private to the mount.
//
// Threads: as RequestSource says. Lifetime: the session outlives it.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/mount/Fuse.h"
#include "service/mount/RequestLoop.h"

namespace tulo {

class KernelRequests final : public RequestSource {
 public:
  // Of a session that is mounted, for as many threads as there are slots. Throws MountError.
  KernelRequests(fuse_session* session, unsigned slots);
  ~KernelRequests() override;
  KernelRequests(const KernelRequests&) = delete;
  KernelRequests& operator=(const KernelRequests&) = delete;

  Taken take(unsigned slot) override;
  void await() override;
  void wake() override;

  // Whether every request that has come so far was handled. Any thread.
  bool isIdle() const;
  void handle(unsigned slot) override;

 private:
  fuse_session* const session_;
  const int device_;
  const FileDescriptor wake_;
  std::vector<fuse_buf> buffers_;
  // How many threads take a request or handle one, and how many were handled.
  std::atomic<unsigned> busy_ = 0;
  std::atomic<std::uint64_t> handled_ = 0;
};

}  // namespace tulo
