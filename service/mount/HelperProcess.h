// A child process that does what may have to wait for this service's own mount.
//
// Were it done here, a service that is killed meanwhile would never end: its thread would wait for
// an answer that only the service can give, and keep open what ends the waiting. The child has
// nothing of the service's open but the standard descriptors.
//
// Threads: any thread.
// Errors: none; a child that could not be made has no status.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>

#include "platform/linux/FileDescriptor.h"
#include "service/base/Time.h"

namespace tulo {

class HelperProcess {
 public:
  // Begins at once. `work` may only make system calls, since other threads are not there in the
  // child; what it returns is the exit status.
  explicit HelperProcess(const std::function<int()>& work);
  // One that has not ended is killed.
  ~HelperProcess();
  HelperProcess(const HelperProcess&) = delete;
  HelperProcess& operator=(const HelperProcess&) = delete;

  // The exit status; nothing where there is none, or not within the time.
  std::optional<int> wait(milliseconds patience);

 private:
  pid_t process_ = -1;
  FileDescriptor handle_;
};

}  // namespace tulo
