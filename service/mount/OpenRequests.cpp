#include "service/mount/OpenRequests.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "service/mount/MountGuard.h"

namespace tulo {

OpenRequests::OpenRequests(const MountParts& parts, Handles& handles, Interrupts& interrupts)
    : contents_(parts.contents),
      openFiles_(parts.openFiles),
      notifier_(parts.notifier),
      edits_(parts.edits),
      files_(parts.files),
      handles_(handles),
      interrupts_(interrupts) {}

int OpenRequests::mayWrite(NodeId node) const {
  return edits_ ? edits_->mayWrite(node) : EROFS;
}

void OpenRequests::open(fuse_req_t request, NodeId node, const fuse_file_info& info) {
  guarded(request, [&] {
    const bool writes = (info.flags & (O_ACCMODE | O_TRUNC)) != O_RDONLY;
    const int refused = writes ? mayWrite(node) : 0;
    if (refused != 0) {
      fuse_reply_err(request, refused);
    } else if ((info.flags & O_TRUNC) != 0) {
      openEmptied(request, node, info);
    } else {
      openWhole(request, node, info);
    }
  });
}

void OpenRequests::openWhole(fuse_req_t request, NodeId node, const fuse_file_info& info) {
  OpenAttempt attempt = contents_.openNow(node);
  if (attempt.isAnswered()) {
    reply(request, info, std::move(attempt.answer));
  } else {
    openWaiting(request, node, info, attempt.step);
  }
}

// Nothing of the former contents is wanted, so nothing is fetched.
void OpenRequests::openEmptied(fuse_req_t request, NodeId node, const fuse_file_info& info) {
  OpenAnswer answer;
  {
    const SharedLock gate(openFiles_.gate());
    answer.file = contents_.openAsIs(node);
  }
  answer.error = answer.file ? emptied(node) : ESTALE;
  reply(request, info, std::move(answer));
}

int OpenRequests::emptied(NodeId node) const {
  const OpenedFile opened = files_->open(node);
  return opened.file ? opened.file->truncate(0) : opened.error;
}

void OpenRequests::openWaiting(fuse_req_t request, NodeId node, const fuse_file_info& info,
                               OpenStep missing) {
  const int process = fuse_req_ctx(request)->pid;
  const Contents::Ticket ticket = contents_.beginOpen(
      [this, request, info](OpenAnswer answer) { reply(request, info, std::move(answer)); });
  interrupts_.armOpen(request, ticket);
  contents_.proceed(ticket, node, process, missing);
}

void OpenRequests::reply(fuse_req_t request, const fuse_file_info& wanted, OpenAnswer answer) {
  if (answer.error == 0) answer.error = handles_.prepareToWrite(wanted, *answer.file);
  if (answer.error != 0) {
    if (answer.file) handles_.close(std::move(answer.file));
    fuse_reply_err(request, answer.error);
    return;
  }
  const fuse_file_info info = handles_.give(request, wanted, std::move(answer.file));
  // The kernel must have heard of a new version before somebody reads it.
  notifier_.afterDelivery([this, request, info] {
    if (fuse_reply_open(request, &info) != 0) handles_.drop(nullptr, info);
  });
}

void OpenRequests::release(fuse_req_t request, const fuse_file_info& info) {
  guarded(request, [&] {
    handles_.drop(request, info);
    fuse_reply_err(request, 0);
  });
}

}  // namespace tulo
