// A file or folder in the working folder of a root: what is about to get a name there, or has just
// lost it. It lies on the root's file system, so that one rename moves it in or out.
//
// Threads: one at a time. Errors: OperationError.
#pragma once

#include <string>

#include "host/account/StagedCopy.h"
#include "host/base/EntryStat.h"
#include "host/base/HostLog.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class WorkItem {
 public:
  // Nothing yet. `name` must be new in the folder `work`; `log` must outlive the item.
  WorkItem(FileDescriptor work, std::string name, const HostLog& log);
  // Removes what is still there.
  ~WorkItem();
  WorkItem(const WorkItem&) = delete;
  WorkItem& operator=(const WorkItem&) = delete;

  // Moves the staged copy here, or copies it from another file system; in both cases it is on the
  // disk, synced, when the call returns. An empty folder where there is no copy.
  void fill(const StagedCopy* copy);

  int folder() const { return work_.get(); }
  const std::string& name() const { return name_; }
  // Throws when there is nothing.
  EntryStat stat() const;

 private:
  void take(const StagedCopy& copy);
  void makeEmptyFolder();

  FileDescriptor work_;
  std::string name_;
  const HostLog& log_;
};

}  // namespace tulo::host
