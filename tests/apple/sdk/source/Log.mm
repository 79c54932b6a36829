#include <os/log.h>

#include <cstdarg>
#include <map>
#include <mutex>
#include <utility>

#include "tests/apple/sdk/StandIns.h"

@interface TuloSDKLog : NSObject <OS_os_log> {
 @public
  std::string subsystem;
  std::string category;
}
@end

@implementation TuloSDKLog
@end

namespace {

struct LogState {
  std::mutex mutex;
  std::map<std::pair<std::string, std::string>, TuloSDKLog *> logs;
  tulo::sdk::LogHandler handler;
};

LogState &state() {
  static LogState &instance = *new LogState;
  return instance;
}

std::string text(NSString *string) {
  const char *bytes = [string UTF8String];
  return bytes == nullptr ? "" : bytes;
}

// Takes the next conversion off the format and gives its argument as text.
std::string nextArgument(std::string_view &format, va_list &arguments) {
  const bool isPublic = format.starts_with("%{public}");
  const std::size_t end = format.find_first_of("@sd");
  const char conversion = end == std::string_view::npos ? '\0' : format[isPublic ? 9 : end];
  std::string argument;
  if (conversion == '@') {
    argument = text([va_arg(arguments, id) description]);
  } else if (conversion == 's') {
    argument = va_arg(arguments, const char *);
  } else {
    return std::to_string(va_arg(arguments, int));
  }
  return isPublic ? argument : "<private>";
}

std::vector<std::string> argumentsOf(std::string_view format, va_list &arguments) {
  std::vector<std::string> values;
  for (std::size_t at = format.find('%'); at != std::string_view::npos; at = format.find('%')) {
    format.remove_prefix(at);
    values.push_back(nextArgument(format, arguments));
    format.remove_prefix(1);
  }
  return values;
}

}  // namespace

os_log_t os_log_create(const char *subsystem, const char *category) {
  const std::scoped_lock lock(state().mutex);
  TuloSDKLog *&log = state().logs[{subsystem, category}];
  if (log == nil) {
    log = [TuloSDKLog new];
    log->subsystem = subsystem;
    log->category = category;
  }
  return log;
}

bool os_log_type_enabled(os_log_t log, os_log_type_t) { return log != nil; }

void tulo_sdk_os_log(os_log_t log, os_log_type_t type, const char *format, ...) {
  va_list list;
  va_start(list, format);
  const auto *known = static_cast<TuloSDKLog *>(log);
  const tulo::sdk::LogCall call{known->subsystem, known->category, type, format,
                                argumentsOf(format, list)};
  va_end(list);
  tulo::sdk::LogHandler handler;
  {
    const std::scoped_lock lock(state().mutex);
    handler = state().handler;
  }
  if (handler) handler(call);
}

namespace tulo::sdk {

LogHandler setLogHandler(LogHandler handler) {
  const std::scoped_lock lock(state().mutex);
  return std::exchange(state().handler, std::move(handler));
}

}  // namespace tulo::sdk
