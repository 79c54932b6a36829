// The system's log.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

namespace tulo::platform {

// One argument of a message. Borrows text for the duration of the call.
class LogArgument {
 public:
  LogArgument(std::string_view text) : value_(text) {}
  LogArgument(const std::string& text) : value_(std::string_view(text)) {}
  LogArgument(const char* text) : value_(std::string_view(text)) {}
  LogArgument(std::integral auto number) : value_(static_cast<std::int64_t>(number)) {}

  // The argument as it stands in the formatted message.
  std::string description() const;

 private:
  std::variant<std::string_view, std::int64_t> value_;
};

// A handle on the log with a subsystem and a category.
//
// Formats use the system's own notation: "%{public}@", "%{public}s" and "%d", each taking the next
// argument; every argument is public.
//
// Threads: every member may be called on any thread. Logging never throws and never fails loudly.
class Log {
 public:
  Log(std::string_view subsystem, std::string_view category);
  ~Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  void info(std::string_view format, std::initializer_list<LogArgument> arguments = {}) const;
  void error(std::string_view format, std::initializer_list<LogArgument> arguments = {}) const;

  // The message that a format and its arguments give. Arguments that are missing leave their
  // placeholder as it stands.
  static std::string formatted(std::string_view format,
                               std::initializer_list<LogArgument> arguments);

 private:
  struct Handle;
  std::unique_ptr<Handle> handle_;
};

}  // namespace tulo::platform
