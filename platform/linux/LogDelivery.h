// The way of a log record from its handle to the sink, and the forms that the sinks give it.
//
// Threads: every function may be called on any thread.
#pragma once

#include <string>

#include "platform/linux/LogSink.h"

namespace tulo::platform {

// Hands the record to the sink of this process. A sink that logs itself is not called again for
// what it logs. Throws what the sink throws.
void deliverLogRecord(const LogRecord& record);

// "error app.example Category: message", without a line end; control characters are shown as
// escapes, so that one record is always one line.
std::string logTextLine(const LogRecord& record);

// The JSON object of the record, without a line end.
std::string logJSONLine(const LogRecord& record);

}  // namespace tulo::platform
