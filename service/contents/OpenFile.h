// One open of one file. It keeps its version, whatever happens to the name.
//
// Threads: content(), endsBefore() and descriptor() may be called on any thread; setWrites() and
// writes() by whoever opens the file, before others have it.
// Lifetime: what is handed in outlives the file.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Mutex.h"
#include "service/kernel/OpenFiles.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

class OpenFile {
 public:
  // `size`: what the file of contents must have; nothing where it may change.
  OpenFile(Replica& replica, OpenFiles& openFiles, const ContentStore& store, NodeId node,
           ContentId content, std::optional<std::int64_t> size);
  ~OpenFile();
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  NodeId node() const { return node_; }
  ContentId content() const TULO_EXCLUDES(mutex_);
  // The handle may write; known to others from now on.
  void setWrites();
  bool writes() const { return writes_; }
  // Whether there is nothing from that offset on; may be false at the end of what was changed here.
  bool endsBefore(std::int64_t offset) TULO_EXCLUDES(mutex_);
  // The file of contents, opened at the first read: a file whose pages the kernel still has is
  // never opened at all. Throws ContentError.
  std::shared_ptr<const FileDescriptor> descriptor() TULO_EXCLUDES(mutex_);

 private:
  bool isBehind(std::uint64_t changes) const TULO_EXCLUDES(mutex_);
  // Goes on with what the node has now, if that was changed here since.
  void follow() TULO_EXCLUDES(mutex_);

  Replica& replica_;
  OpenFiles& openFiles_;
  const ContentStore& store_;
  const NodeId node_;
  bool writes_ = false;
  // A leaf but for OpenFiles' own.
  mutable Mutex mutex_;
  ContentId content_ TULO_GUARDED_BY(mutex_);
  std::optional<std::int64_t> size_ TULO_GUARDED_BY(mutex_);
  std::uint64_t changes_ TULO_GUARDED_BY(mutex_) = 0;
  std::shared_ptr<const FileDescriptor> descriptor_ TULO_GUARDED_BY(mutex_);
};

struct OpenAnswer {
  int error = 0;
  std::unique_ptr<OpenFile> file;
};

}  // namespace tulo
