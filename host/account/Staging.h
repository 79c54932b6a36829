// The folder "fp-upload", into which the extension copies what it wants to hand over.
//
// A staged copy belongs to the host from the moment a request names it: it is taken over or
// removed, whatever becomes of the request. Copies that no request ever names are removed in time.
//
// Threads: every member may be called on any thread. Errors: OperationError.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "host/account/Claims.h"
#include "host/account/Container.h"
#include "host/account/StagedCopy.h"
#include "host/base/HostLog.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class Staging {
 public:
  // Both must outlive the object.
  Staging(const Container& container, const HostLog& log);

  // Throws OperationError: bad_request for a path that is not directly inside the folder or that
  // another request holds, not_found when nothing is there. The object outlives the copy.
  std::unique_ptr<StagedCopy> claim(const std::string& path);

  void removeUncollected(std::chrono::seconds age, std::chrono::system_clock::time_point now);

 private:
  FileDescriptor open() const;

  const Container& container_;
  const HostLog& log_;
  Claims claims_;
};

}  // namespace tulo::host
