// Records what is logged while it lives, in place of the log.
//
// Threads: records may come from any thread.
// Lifetime: one at a time in a process. Each platform has its own implementation of the source.
#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace tulo::test {

struct LogLine {
  std::string subsystem;
  std::string category;
  std::string level;  // "info" or "error"
  std::string message;

  bool operator==(const LogLine&) const = default;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

// The lines that the extension's areas write: subsystem and category filled in.
LogLine extensionInfo(std::string message);
LogLine extensionError(std::string message);
LogLine indexInfo(std::string message);
LogLine indexError(std::string message);
LogLine enumeratorInfo(std::string message);

class LogRecorder {
 public:
  LogRecorder();
  ~LogRecorder();
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;

  // All lines so far, oldest first.
  std::vector<LogLine> lines() const;
  void clear();

  struct State;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace tulo::test
