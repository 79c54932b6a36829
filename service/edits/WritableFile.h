// The contents of one node as long as somebody has it open.
//
// Contents that change here are written in place, in one file shared by all who have the file
// open. Before the first byte changes, the journal says that the contents are dirty (FirstWrite).
// While a version is on its way to the host it stays as it is: the first write then goes to a copy.
//
// The row follows the bytes later: whatever was written is to be settled.
//
// Threads: every member may be called on any thread.
// Lifetime: may outlive nothing that FileParts names.
// Errors: what a program asks for returns 0 or an errno; open() and what settles throw
// DatabaseError or ContentError.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Mutex.h"
#include "service/edits/FileParts.h"
#include "service/edits/WriteMarks.h"

namespace tulo {

class WritableFile {
 public:
  WritableFile(const FileParts& parts, NodeId node)
      : parts_(parts), node_(node), marks_(parts.quiet.now()) {}
  // For contents that are made just now, and journaled.
  WritableFile(const FileParts& parts, NodeId node, ContentId content, FileDescriptor contents);

  // Opens the contents that the node has, if they are here and not open yet.
  int open() TULO_EXCLUDES(mutex_);

  // The number of bytes, or an errno as a negative number; -ENODATA: as long as nobody changes the
  // contents here, they are read elsewhere.
  ssize_t read(char* data, std::size_t size, off_t offset) TULO_EXCLUDES(mutex_);
  ssize_t write(const char* data, std::size_t size, off_t offset) TULO_EXCLUDES(mutex_);
  int truncate(off_t size) TULO_EXCLUDES(mutex_);
  int allocate(int mode, off_t offset, off_t length) TULO_EXCLUDES(mutex_);
  off_t seek(off_t offset, int whence) TULO_EXCLUDES(mutex_);
  ssize_t copyFrom(WritableFile& source, off_t from, off_t to, std::size_t size)
      TULO_EXCLUDES(mutex_);
  // Forces the bytes to the disk.
  int force(bool dataOnly) TULO_EXCLUDES(mutex_);
  // The descriptor to read from; nothing when there are no contents yet. Throws ContentError.
  std::optional<FileDescriptor> duplicateDescriptor() TULO_EXCLUDES(mutex_);

  // Changes size and times of an entry to what a program sees that has written since; false when
  // its row says that.
  bool overlay(Entry& entry) TULO_EXCLUDES(mutex_);
  // Something was written that is not in the row yet.
  bool isChanged() const { return marks_.isUnsettled(); }
  // When that was last; when the file was opened, if nobody has since.
  WallTime lastWritten() const { return marks_.last(); }
  // Brings the row up to date; false when it was.
  bool settle() TULO_EXCLUDES(mutex_);
  // Runs the function in the transaction that brings the row up to date, after that.
  void settleAnd(const Replica::WriteFunction& function) TULO_EXCLUDES(mutex_);
  // The same with contents that do not change meanwhile, and of which the next write begins anew.
  void withSettled(Durability durability, const Replica::WriteFunction& function)
      TULO_EXCLUDES(mutex_);

  // Settles all of them in one transaction. They come in the order of their nodes: whoever locks
  // several locks them in the same order. What cannot be noted is logged, and stays changed.
  static void settleTogether(const std::vector<std::shared_ptr<WritableFile>>& files);

 private:
  // Whether the contents that are open are the node's for certain: nobody but this changes which
  // ones it has as long as they are being changed here.
  bool isOwn() const TULO_REQUIRES_SHARED(mutex_) { return file_ && writable_; }
  int openCurrent() TULO_REQUIRES(mutex_);
  // Throws.
  void prepare(bool keepContents) TULO_REQUIRES(mutex_);
  // Calls the function with the descriptor of contents that may be changed.
  template <typename Function>
  auto changing(bool keepContents, const Function& function) TULO_EXCLUDES(mutex_);
  void updateRow(ReplicaWriter& writer) TULO_REQUIRES_SHARED(mutex_);

  const FileParts& parts_;
  const NodeId node_;
  // Shared for reading and writing bytes, exclusive for exchanging the file. Taken before the
  // replica's own locks; those of several files in the order of their nodes.
  SharedMutex mutex_;
  FileDescriptor file_ TULO_GUARDED_BY(mutex_);
  ContentId content_ TULO_GUARDED_BY(mutex_) = kNoContent;
  // The journal knows, and nobody sends it.
  bool writable_ TULO_GUARDED_BY(mutex_) = false;
  WriteMarks marks_;
};

}  // namespace tulo
