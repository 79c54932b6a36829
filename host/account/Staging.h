// The folder "fp-upload", into which the extension copies what it wants to hand over.
//
// A staged copy belongs to the host from the moment a request names it: it is taken over or
// removed, whatever becomes of the request. Copies that no request ever names are swept.
//
// Threads: every member may be called on any thread.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "host/account/Container.h"
#include "host/base/Files.h"
#include "host/base/HostLog.h"

namespace tulo::host {

class Staging;

// The hold of one request on one staged copy. What is left of the copy at its end is removed.
class StagedCopy {
 public:
  ~StagedCopy();
  StagedCopy(const StagedCopy&) = delete;
  StagedCopy& operator=(const StagedCopy&) = delete;

  int folder() const { return folder_.get(); }
  const std::string& name() const { return name_; }
  bool isFolder() const { return stat_.isFolder; }
  // The bytes in all of its files.
  std::int64_t size() const { return size_; }

 private:
  friend class Staging;
  StagedCopy(Staging& staging, FileDescriptor folder, std::string name);

  Staging& staging_;
  FileDescriptor folder_;
  std::string name_;
  EntryStat stat_;
  std::int64_t size_ = 0;
};

class Staging {
 public:
  // Both must outlive the object.
  Staging(const Container& container, const HostLog& log);

  // Throws OperationError: bad_request for a path that is not directly inside the folder or that
  // another request holds, not_found when nothing is there.
  std::unique_ptr<StagedCopy> claim(const std::string& path);

  void sweep(std::chrono::seconds age, std::chrono::system_clock::time_point now);

 private:
  friend class StagedCopy;
  FileDescriptor open() const;
  void release(const std::string& name);

  const Container& container_;
  const HostLog& log_;
  std::mutex mutex_;
  std::set<std::string> claimed_;
};

}  // namespace tulo::host
