// The contents of files that are open, or were changed here.
//
// Contents that changed here are written in place, in one file shared by all who have the file
// open. Before the first byte changes, the journal says that the contents are dirty. While a
// version is on its way to the host it stays as it is: the first write then goes to a copy.
//
// Threads: every member may be called on any thread.
// Lifetime: a WritableFile may outlive nothing that LocalFiles was given.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <shared_mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "service/kernel/OpenFiles.h"
#include "service/replica/ContentStore.h"
#include "service/replica/Journal.h"
#include "service/replica/Replica.h"

namespace tulo {

// Milliseconds since 1970.
using MillisecondClock = std::function<std::int64_t()>;
MillisecondClock systemClock();

class LocalFiles;

// The contents of one node as long as somebody has it open. Every call returns 0 or an errno.
class WritableFile {
 public:
  WritableFile(LocalFiles& owner, NodeId node) : owner_(owner), node_(node) {}

  // The number of bytes, or an errno as a negative number; -ENODATA: as long as nobody has opened
  // the contents here, they are read elsewhere.
  ssize_t read(char* data, std::size_t size, off_t offset);
  ssize_t write(const char* data, std::size_t size, off_t offset);
  int truncate(off_t size);
  int allocate(int mode, off_t offset, off_t length);
  off_t seek(off_t offset, int whence);
  ssize_t copyFrom(WritableFile& source, off_t from, off_t to, std::size_t size);
  // Forces the bytes to the disk.
  int force(bool dataOnly);
  // The descriptor to read from; nothing when there are no contents yet.
  std::optional<FileDescriptor> duplicateDescriptor();

 private:
  friend class LocalFiles;

  // Makes the contents writable; the lock is held exclusively. Throws.
  void prepare(bool keepContents);
  template <typename Function>
  auto changing(bool keepContents, const Function& function);

  LocalFiles& owner_;
  const NodeId node_;
  // Shared for reading and writing bytes, exclusive for exchanging the file. Taken before the
  // replica's own locks; those of several files in the order of their nodes.
  std::shared_mutex mutex_;
  FileDescriptor file_;
  ContentId content_ = kNoContent;
  bool writable_ = false;              // the journal knows, and nobody sends it
  std::atomic<bool> changed_ = false;  // since the row was brought up to date
  unsigned settlers_ = 0;              // guarded by the owner
};

class LocalFiles {
 public:
  LocalFiles(Replica& replica, ContentStore& store, OpenFiles& openFiles, MillisecondClock clock,
             std::int64_t quietMilliseconds);
  ~LocalFiles();

  // After a restart: sizes and times of dirty contents are what their files say.
  void start();
  // Brings every row up to date and ends the thread that does so in the background.
  void stop();

  // The shared contents of a node whose contents are here; null with an errno otherwise.
  std::shared_ptr<WritableFile> open(NodeId node, int& error);
  // The same for contents that are made just now, inside the transaction that makes the node and
  // journals them: only so can nobody have sent them yet. Open until released().
  void openNew(NodeId node, ContentId content, FileDescriptor contents);
  // The same if somebody has it open already.
  std::shared_ptr<WritableFile> find(NodeId node) const;

  // A handle that could write was flushed or closed: brings the row up to date; the quiet time
  // begins. Returns 0 or an errno.
  int settle(NodeId node);
  // Settles soon: the bytes are safe where they are, and a start after a crash finds them, so
  // that closing a file need not wait for its row.
  void settleLater(NodeId node);
  // What was written to the node, and the journal, survive a power cut. Returns 0 or an errno.
  int synchronize(NodeId node, bool dataOnly);
  // Kept until the host reports other contents.
  int setModified(NodeId node, const timespec& modified);
  // Does what was put off.
  void catchUp();
  // Notes the name that unsent contents are recovered under, soon.
  void nameLater(ContentId content, std::string name);
  // The contents are the host's.
  void forgetName(ContentId content);
  // Nobody has it open any more.
  void released(NodeId node);

  // Changes size and times of an entry to what a program sees that has written since.
  void overlay(Entry& entry) const;

  // Runs `function` in a transaction in which the contents of the node cannot change.
  void withSettled(NodeId node, Durability durability, const Replica::WriteFunction& function);
  // The contents went up or were replaced: the next write begins anew.
  void contentsSent(NodeId node);

  Replica& replica() { return replica_; }
  std::int64_t now() const { return clock_(); }
  std::int64_t quiet() const { return quiet_; }
  // Called when a change was journaled.
  void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }
  void changed() const {
    if (onChange_) onChange_();
  }

 private:
  friend class WritableFile;

  class Settler;

  std::shared_ptr<WritableFile> slot(NodeId node);
  void eraseUnused(NodeId node);
  void updateRow(ReplicaWriter& writer, WritableFile& file);
  void noteChange(WritableFile& file);
  int forceContents(NodeId node, bool dataOnly);
  void wakeKeeper();
  void keepUp();
  void settleAll(const std::vector<std::shared_ptr<WritableFile>>& files);

  Replica& replica_;
  ContentStore& store_;
  OpenFiles& openFiles_;
  const MillisecondClock clock_;
  const std::int64_t quiet_;
  std::function<void()> onChange_;

  // Guards the map; a leaf.
  mutable std::mutex mutex_;
  std::unordered_map<NodeId, std::shared_ptr<WritableFile>> files_;

  // Guards what is put off; a leaf.
  std::mutex laterMutex_;
  std::condition_variable laterChanged_;
  std::set<NodeId> unsettled_;
  std::unordered_map<ContentId, std::string> names_;
  bool keeperRests_ = false;
  bool stopping_ = false;
  std::thread keeper_;
};

}  // namespace tulo
