// The folder "fp-download", in which the host puts the copies that it hands over.
//
// A copy belongs to its receiver from the reply on, who moves or removes it; the host removes
// what is left after a long time.
//
// Threads: every member may be called on any thread.
#pragma once

#include <chrono>
#include <string>

#include "host/account/Container.h"
#include "host/base/HostLog.h"
#include "host/index/Ulid.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class Downloads {
 public:
  // All must outlive the object.
  Downloads(const Container& container, UlidSource& ulids, const HostLog& log);

  // The path of a new copy of what a file holds that has just been opened; a clone where the file
  // systems allow one. Throws OperationError; nothing of the copy is left then.
  std::string handOver(int file);
  // Takes back a copy whose path nobody has been told.
  void takeBack(const std::string& path);

  void removeUncollected(std::chrono::seconds age, std::chrono::system_clock::time_point now);

 private:
  FileDescriptor open() const;

  const Container& container_;
  UlidSource& ulids_;
  const HostLog& log_;
};

}  // namespace tulo::host
