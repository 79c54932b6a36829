#include <algorithm>

#include "platform/Log.h"

namespace tulo::platform {

namespace {

// The length of the placeholder or escape at the front of `format`, which begins with '%': an
// optional "{...}", optional length letters and one conversion letter. 0 for anything else.
std::size_t placeholderLength(std::string_view format) {
  std::size_t length = 1;
  if (length < format.size() && format[length] == '{') {
    const std::size_t close = format.find('}', length);
    if (close == std::string_view::npos) return 0;
    length = close + 1;
  }
  while (length < format.size() && format[length] == 'l')
    ++length;
  if (length == format.size()) return 0;
  constexpr std::string_view conversions = "@sdiu%";
  return conversions.find(format[length]) == std::string_view::npos ? 0 : length + 1;
}

}  // namespace

std::string LogArgument::description() const {
  if (const auto* number = std::get_if<std::int64_t>(&value_)) return std::to_string(*number);
  return std::string(std::get<std::string_view>(value_));
}

std::string Log::formatted(std::string_view format, std::initializer_list<LogArgument> arguments) {
  std::string message;
  auto next = arguments.begin();
  while (!format.empty()) {
    const std::size_t plain = std::min(format.find('%'), format.size());
    message += format.substr(0, plain);
    format.remove_prefix(plain);
    if (format.empty()) break;
    const std::size_t length = placeholderLength(format);
    if (format.starts_with("%%")) {
      message += '%';
    } else if (length > 0 && next != arguments.end()) {
      message += next++->description();
    } else {
      message += format.substr(0, length > 0 ? length : 1);
    }
    format.remove_prefix(length > 0 ? length : 1);
  }
  return message;
}

}  // namespace tulo::platform
