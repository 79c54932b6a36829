#include "platform/Log.h"

#include <cerrno>

#include "platform/linux/LogDelivery.h"

namespace tulo::platform {

struct Log::Handle {
  std::string subsystem;
  std::string category;

  void deliver(LogLevel level, std::string_view format,
               std::initializer_list<LogArgument> arguments) const noexcept {
    // Callers log between a failed call and the look at its error number.
    const int savedError = errno;
    try {
      deliverLogRecord({subsystem, category, level, formatted(format, arguments)});
    } catch (...) {
      // Short of memory: the program goes on without this line.
    }
    errno = savedError;
  }
};

Log::Log(std::string_view subsystem, std::string_view category)
    : handle_(new Handle{std::string(subsystem), std::string(category)}) {}

Log::~Log() = default;

void Log::info(std::string_view format, std::initializer_list<LogArgument> arguments) const {
  handle_->deliver(LogLevel::info, format, arguments);
}

void Log::error(std::string_view format, std::initializer_list<LogArgument> arguments) const {
  handle_->deliver(LogLevel::error, format, arguments);
}

}  // namespace tulo::platform
