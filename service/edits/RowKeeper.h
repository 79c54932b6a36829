// Brings rows up to date a moment after their files were closed, many in one transaction, and
// notes the names that unsent contents are recovered under.
//
// The bytes are safe where they are, and a start after a crash finds them, so nobody needs to wait
// for that.
//
// Threads: every member may be called on any thread; stop() once at a time.
// Errors: what cannot be noted is logged, and tried again when the file is closed again.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>

#include "platform/linux/Mutex.h"
#include "service/edits/WritableFiles.h"

namespace tulo {

class RowKeeper {
 public:
  // `settled` is called when rows were brought up to date.
  RowKeeper(WritableFiles& files, const ContentStore& store, std::function<void()> settled);
  ~RowKeeper();
  RowKeeper(const RowKeeper&) = delete;
  RowKeeper& operator=(const RowKeeper&) = delete;

  // Settles the node soon.
  void settleLater(NodeId node) TULO_EXCLUDES(mutex_);
  // Notes the name of unsent contents, soon.
  void nameLater(ContentId content, std::string name) TULO_EXCLUDES(mutex_);
  // The contents are the host's.
  void forgetName(ContentId content) TULO_EXCLUDES(mutex_);
  // Does what was put off.
  void catchUp() TULO_EXCLUDES(mutex_);
  // The same, and ends the thread.
  void stop() TULO_EXCLUDES(mutex_);

 private:
  using Names = std::unordered_map<ContentId, std::string>;

  void wake() TULO_REQUIRES(mutex_);
  void keepUp() TULO_EXCLUDES(mutex_);
  void note(const Names& names) const;
  void settle(const std::set<NodeId>& nodes);

  WritableFiles& files_;
  const ContentStore& store_;
  const std::function<void()> settled_;

  // A leaf.
  Mutex mutex_;
  Condition changed_;
  // In the order in which their files are locked.
  std::set<NodeId> unsettled_ TULO_GUARDED_BY(mutex_);
  Names names_ TULO_GUARDED_BY(mutex_);
  bool rests_ TULO_GUARDED_BY(mutex_) = false;
  bool stopping_ TULO_GUARDED_BY(mutex_) = false;
  std::thread thread_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
