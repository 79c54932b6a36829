// What is open in the mount, and what an open file keeps although its name moved on.
//
// An inode number stands for one version of a file's contents as long as the file is open: the
// kernel keeps one size and one set of pages for it. When another version arrives meanwhile, the
// item goes on under a fresh number, as if a program had replaced the file by renaming another
// over it, and the old number stays with those who have it open.
//
// The gate makes "is it open?" and "this is its version now" one step: opening a file holds it
// shared from reading the row until the file is registered here; a transaction that changes or
// drops contents holds it exclusively from asking until it is committed. It is taken before any
// other lock of the service, and never while the kernel is being notified.
//
// Threads: every member may be called on any thread.
#pragma once

#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/replica/Node.h"

namespace tulo {

class OpenFiles {
 public:
  SharedMutex& gate() TULO_RETURN_CAPABILITY(gate_) { return gate_; }

  void opened(NodeId node, ContentId content);
  void closed(NodeId node, ContentId content);
  // Handles that may write; each is also one of the above.
  void openedForWriting(NodeId node);
  void closedForWriting(NodeId node);
  bool isOpenForWriting(NodeId node) const;
  bool anyForWriting() const;
  std::vector<NodeId> allOpenForWriting() const;
  bool isOpen(NodeId node) const;
  bool isContentOpen(ContentId content) const;
  // The contents of the node are no longer those that its handles were opened with, but it is still
  // the same file.
  void contentsChanged(NodeId node);
  // How often that happened since the first handle was opened.
  std::uint64_t contentsChanges(NodeId node) const;
  // An open handle reads from other contents now.
  void exchanged(ContentId before, ContentId now);
  std::size_t count() const;

  // The node's number belongs to its open files alone from now on.
  void leaveBehind(const Entry& entry);
  // The attributes of a number that was left behind.
  std::optional<Entry> leftBehind(NodeId node) const;

 private:
  struct State {
    std::uint64_t handles = 0;
    std::uint64_t writers = 0;
    std::uint64_t changes = 0;
    std::optional<Entry> leftBehind;
  };

  void forgetContent(ContentId content) TULO_REQUIRES(mutex_);

  SharedMutex gate_;
  // A leaf.
  mutable Mutex mutex_;
  std::unordered_map<NodeId, State> nodes_ TULO_GUARDED_BY(mutex_);
  std::unordered_map<ContentId, std::uint64_t> contents_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
