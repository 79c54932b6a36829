#include "service/mount/WriteRequests.h"

#include <cerrno>
#include <utility>

#include "service/mount/MountGuard.h"
#include "service/mount/Replies.h"
#include "service/mount/RequestLoop.h"

namespace tulo {

WriteRequests::WriteRequests(const MountParts& parts, VerdictReplies& verdicts)
    : replica_(parts.replica), files_(parts.files), verdicts_(verdicts) {}

std::shared_ptr<WritableFile> WriteRequests::shared(fuse_req_t request, NodeId node) {
  OpenedFile opened = files_ ? files_->open(node) : OpenedFile{nullptr, EBADF};
  if (!opened.file) fuse_reply_err(request, opened.error);
  return std::move(opened.file);
}

void WriteRequests::write(fuse_req_t request, NodeId node, const char* data, std::size_t size,
                          off_t offset) {
  guarded(request, [&] {
    const std::shared_ptr<WritableFile> file = shared(request, node);
    if (file) replyWritten(request, file->write(data, size, offset));
  });
}

void WriteRequests::flush(fuse_req_t request, NodeId node) {
  guarded(request, [&] {
    const bool waits = files_ && verdicts_.wanted();
    const int error = waits ? files_->settle(node) : 0;
    if (error != 0 || !waits || !verdicts_.isUnsent(node)) {
      fuse_reply_err(request, error);
      return;
    }
    verdicts_.reply(request, {node}, {}, [request] { fuse_reply_err(request, 0); });
  });
}

void WriteRequests::fsync(fuse_req_t request, NodeId node, bool dataOnly) {
  RequestLoop::passTurn();
  guarded(request,
          [&] { fuse_reply_err(request, files_ ? files_->synchronize(node, dataOnly) : 0); });
}

void WriteRequests::fsyncFolder(fuse_req_t request) {
  RequestLoop::passTurn();
  guarded(request, [&] {
    if (files_) replica_.synchronize();
    fuse_reply_err(request, 0);
  });
}

void WriteRequests::fallocate(fuse_req_t request, NodeId node, int mode, off_t offset,
                              off_t length) {
  RequestLoop::passTurn();
  guarded(request, [&] {
    const std::shared_ptr<WritableFile> file = shared(request, node);
    if (file) fuse_reply_err(request, file->allocate(mode, offset, length));
  });
}

void WriteRequests::copyRange(fuse_req_t request, const Place& from, const Place& to,
                              std::size_t size) {
  RequestLoop::passTurn();
  guarded(request, [&] {
    const std::shared_ptr<WritableFile> source = shared(request, from.node);
    if (!source) return;
    const std::shared_ptr<WritableFile> target = shared(request, to.node);
    if (!target) return;
    replyWritten(request, target->copyFrom(*source, from.offset, to.offset, size));
  });
}

void WriteRequests::lseek(fuse_req_t request, NodeId node, off_t offset, int whence) {
  guarded(request, [&] {
    const std::shared_ptr<WritableFile> file = shared(request, node);
    if (!file) return;
    const off_t position = file->seek(offset, whence);
    if (position < 0) {
      fuse_reply_err(request, static_cast<int>(-position));
    } else {
      fuse_reply_lseek(request, position);
    }
  });
}

}  // namespace tulo
