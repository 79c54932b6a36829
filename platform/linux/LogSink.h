// Where the log's records go on Linux.
//
// Threads: every function may be called on any thread; records are handed over one at a time.
#pragma once

#include <functional>
#include <string>

namespace tulo::platform {

enum class LogLevel { info, error };

struct LogRecord {
  std::string subsystem;
  std::string category;
  LogLevel level = LogLevel::info;
  std::string message;
};

using LogSink = std::function<void(const LogRecord&)>;

// Replaces the sink of this process and returns the one before. An empty sink means the default:
// the journal with subsystem and category as fields when standard error is connected to it,
// readable lines on standard error otherwise.
LogSink setLogSink(LogSink sink);

// One readable line on standard error for each record.
LogSink textLogSink();

// One JSON object a line on standard error:
// {"subsystem":S,"category":C,"level":"info"|"error","message":M}.
// Bytes of a message that are not UTF-8 are shown as U+FFFD.
LogSink jsonLogSink();

}  // namespace tulo::platform
