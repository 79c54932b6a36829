#include "service/mount/SetAttributeRequests.h"

#include <cerrno>
#include <ctime>
#include <memory>

#include "service/mount/MountGuard.h"

namespace tulo {

SetAttributeRequests::SetAttributeRequests(const MountParts& parts, const EntryReplies& entries,
                                           TreeRequests& tree)
    : contents_(parts.contents),
      openFiles_(parts.openFiles),
      edits_(parts.edits),
      files_(parts.files),
      entries_(entries),
      tree_(tree) {}

void SetAttributeRequests::setattr(fuse_req_t request, NodeId node, const struct stat& wanted,
                                   int fields) {
  guarded(request, [&] {
    if ((fields & FUSE_SET_ATTR_SIZE) != 0) {
      resize(request, node, wanted, fields);
    } else {
      apply(request, node, wanted, fields);
    }
  });
}

void SetAttributeRequests::resize(fuse_req_t request, NodeId node, const struct stat& wanted,
                                  int fields) {
  const int refused = edits_->mayWrite(node);
  if (refused != 0) {
    fuse_reply_err(request, refused);
    return;
  }
  if (wanted.st_size == 0 || openFiles_.isOpenForWriting(node)) {
    apply(request, node, wanted, fields);
    return;
  }
  // What stays of the contents has to be here first.
  contents_.fetch(node, Contents::Priority::opened,
                  [this, request, node, wanted, fields](int failed) {
                    if (failed != 0) {
                      fuse_reply_err(request, failed);
                      return;
                    }
                    guarded(request, [&] { apply(request, node, wanted, fields); });
                  });
}

void SetAttributeRequests::apply(fuse_req_t request, NodeId node, const struct stat& wanted,
                                 int fields) {
  const int error = change(node, wanted, fields);
  if (error != 0) {
    fuse_reply_err(request, error);
  } else {
    tree_.getattr(request, node);
  }
}

int SetAttributeRequests::change(NodeId node, const struct stat& wanted, int fields) {
  int error = entries_.changesOwner(wanted, fields) ? EPERM : 0;
  if (error == 0 && (fields & FUSE_SET_ATTR_SIZE) != 0) error = truncate(node, wanted.st_size);
  if (error == 0 && (fields & FUSE_SET_ATTR_MODE) != 0) {
    error = edits_->setMode(node, static_cast<int>(wanted.st_mode));
  }
  if (error == 0 && (fields & FUSE_SET_ATTR_MTIME) != 0) {
    error = setModified(node, wanted, fields);
  }
  return error;
}

int SetAttributeRequests::setModified(NodeId node, const struct stat& wanted, int fields) {
  timespec modified = wanted.st_mtim;
  if ((fields & FUSE_SET_ATTR_MTIME_NOW) != 0) ::clock_gettime(CLOCK_REALTIME, &modified);
  return files_->setModified(node, modified);
}

int SetAttributeRequests::truncate(NodeId node, off_t size) {
  // Open meanwhile, so that nobody evicts the contents, and whoever closes the file last leaves it
  // to this one to bring the row up to date.
  std::unique_ptr<OpenFile> open;
  {
    const SharedLock gate(openFiles_.gate());
    open = contents_.openAsIs(node);
  }
  if (!open) return ESTALE;
  const OpenedFile opened = files_->open(node);
  int error = opened.error;
  if (opened.file) {
    error = opened.file->truncate(size);
    const int settled = files_->settle(node);
    if (error == 0) error = settled;
  }
  open.reset();
  files_->released(node);
  return error;
}

}  // namespace tulo
