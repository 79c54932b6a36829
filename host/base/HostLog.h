// What the host writes to the log.
#pragma once

#include <string>
#include <string_view>

#include "platform/Log.h"

namespace tulo::host {

// Threads: every member may be called on any thread.
class HostLog {
 public:
  // `requests`: whether each request gets a line of its own.
  explicit HostLog(bool requests);

  void info(const std::string& text) const { log_.info("%{public}@", {text}); }
  void error(const std::string& text) const { log_.error("%{public}@", {text}); }
  void request(const std::string& text) const {
    if (requests_) info(text);
  }

 private:
  platform::Log log_;
  bool requests_;
};

// Text for a log line or a message: quoted, with control characters and broken UTF-8 shown as
// escapes, so that a file name cannot forge a line of its own.
std::string inQuotes(std::string_view text);

}  // namespace tulo::host
