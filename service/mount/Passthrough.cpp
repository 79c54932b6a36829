#include "service/mount/Passthrough.h"

#include "service/base/ServiceLog.h"
#include "service/errors/ContentError.h"

namespace tulo {

#ifdef FUSE_CAP_PASSTHROUGH

namespace {

// A smaller file is read before the kernel has taken note of a backing file.
constexpr std::int64_t kSmallestFile = 256 * 1024;

}  // namespace

void Passthrough::negotiate(fuse_conn_info& connection) {
  if ((connection.capable & FUSE_CAP_PASSTHROUGH) == 0) return;
  connection.want |= FUSE_CAP_PASSTHROUGH;
  negotiated_ = true;
}

int Passthrough::begin(fuse_req_t request, OpenFile& file) {
  if (refused_ || file.endsBefore(kSmallestFile - 1)) return 0;
  try {
    const int backing = fuse_passthrough_open(request, file.descriptor()->get());
    if (backing > 0) return backing;
    refused_ = true;
    serviceLog().info("the kernel lets this process not pass reads through", {});
  } catch (const ContentError&) {
    // The read will say so.
  }
  return 0;
}

void Passthrough::end(fuse_req_t request, int backing) {
  if (backing > 0) fuse_passthrough_close(request, backing);
}

void Passthrough::opened(fuse_req_t request, OpenFile& file, fuse_file_info& info) {
  if (!negotiated_) return;
  const MutexLock lock(mutex_);
  State& state = states_[file.node()];
  if (state.opens++ == 0) {
    end(request, state.backing);
    state.backing = begin(request, file);
  }
  if (state.backing == 0) return;
  info.backing_id = state.backing;
  // Pages of the inode are neither filled nor looked at.
  info.keep_cache = 0;
}

void Passthrough::closed(fuse_req_t request, NodeId node) {
  if (!negotiated_) return;
  const MutexLock lock(mutex_);
  const auto found = states_.find(node);
  if (found == states_.end() || --found->second.opens > 0) return;
  if (!request && found->second.backing != 0) return;
  end(request, found->second.backing);
  states_.erase(found);
}

#else

void Passthrough::negotiate(fuse_conn_info&) {}
void Passthrough::opened(fuse_req_t, OpenFile&, fuse_file_info&) {}
void Passthrough::closed(fuse_req_t, NodeId) {}

#endif

}  // namespace tulo
