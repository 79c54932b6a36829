#include "platform/Log.h"

#import <Foundation/Foundation.h>

#include <os/log.h>

#include <cerrno>

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Values.h"

namespace tulo::platform {

struct Log::Handle {
  // The system keeps one object for each pair of subsystem and category, for ever.
  os_log_t log;

  void deliver(os_log_type_t type, std::string_view format,
               std::initializer_list<LogArgument> arguments) const {
    // Callers log between a failed call and the look at its error number.
    const int savedError = errno;
    if (os_log_type_enabled(log, type)) {
      const apple::AutoreleasePool pool;
      // The system wants a literal for its format. The message is one argument of it, and public
      // as all of the message's own arguments are.
      os_log_with_type(log, type, "%{public}@", apple::toNSString(formatted(format, arguments)));
    }
    errno = savedError;
  }
};

Log::Log(std::string_view subsystem, std::string_view category)
    : handle_(new Handle{
          os_log_create(std::string(subsystem).c_str(), std::string(category).c_str())}) {}

Log::~Log() = default;

void Log::info(std::string_view format, std::initializer_list<LogArgument> arguments) const {
  handle_->deliver(OS_LOG_TYPE_INFO, format, arguments);
}

void Log::error(std::string_view format, std::initializer_list<LogArgument> arguments) const {
  handle_->deliver(OS_LOG_TYPE_ERROR, format, arguments);
}

}  // namespace tulo::platform
