// Which node has which WritableFile: one for all who have the node open.
//
// An object stays as long as the node is open, something of it is not in its row yet, or somebody
// holds it.
//
// Threads: every member may be called on any thread.
#pragma once

#include <memory>
#include <unordered_map>

#include "platform/linux/Mutex.h"
#include "service/edits/WritableFile.h"

namespace tulo {

class WritableFiles {
 public:
  // Keeps the one object of a node, so that whoever opens the file meanwhile gets it too.
  class Hold {
   public:
    Hold(WritableFiles& files, NodeId node);
    ~Hold();
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
    WritableFile& file() const { return *file_; }

   private:
    WritableFiles& files_;
    const NodeId node_;
    std::shared_ptr<WritableFile> file_;
  };

  explicit WritableFiles(const FileParts& parts) : parts_(parts) {}

  // Null when the node has none.
  std::shared_ptr<WritableFile> find(NodeId node) const TULO_EXCLUDES(mutex_);
  // Makes one for a node that has none.
  std::shared_ptr<WritableFile> get(NodeId node) TULO_EXCLUDES(mutex_);
  // The one of a node that is made just now.
  void add(NodeId node, std::shared_ptr<WritableFile> file) TULO_EXCLUDES(mutex_);
  // Nobody has the node open any more.
  void released(NodeId node) TULO_EXCLUDES(mutex_);

 private:
  struct Slot {
    std::shared_ptr<WritableFile> file;
    unsigned holders = 0;
  };

  Slot& slot(NodeId node) TULO_REQUIRES(mutex_);
  void eraseUnused(NodeId node) TULO_REQUIRES(mutex_);

  const FileParts& parts_;
  // A leaf.
  mutable Mutex mutex_;
  std::unordered_map<NodeId, Slot> slots_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
