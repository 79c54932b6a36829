// The end of the control socket that asks: one connection to the service of an account.
//
// Threads: one thread at a time.
#pragma once

#include <functional>
#include <string>

#include "platform/linux/FileDescriptor.h"

namespace tulo {

class ControlClient {
 public:
  // Throws ServiceError, in words for the user when no service runs.
  explicit ControlClient(const std::string& path);

  // Sends the request and hands over each line of the answer until the service closes or `line`
  // returns false. Throws ServiceError when the service is gone already.
  void ask(const std::string& request, const std::function<bool(const std::string&)>& line);

 private:
  FileDescriptor socket_;
};

}  // namespace tulo
