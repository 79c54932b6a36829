#include "platform/Text.h"

#include <algorithm>

#include "platform/UTF8.h"
#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/GraphemeBreaks.h"
#include "platform/apple/Values.h"

namespace tulo::platform::text {

namespace {

bool isASCII(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

std::string lowercasedASCII(std::string_view text) {
  std::string result(text);
  for (char &c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

// Applies `transform` to each run of well-formed UTF-8 and carries the other bytes over unchanged.
template <typename Transform>
std::string transformed(std::string_view text, const Transform &transform) {
  std::string result;
  while (!text.empty()) {
    const std::size_t valid = utf8::validLength(text);
    if (valid > 0) {
      result += apple::toString(transform(apple::toNSString(text.substr(0, valid))));
    } else {
      result += text.front();
    }
    text.remove_prefix(std::max<std::size_t>(valid, 1));
  }
  return result;
}

// Foundation's rule, for what it cannot hold without changing it.
std::string extensionOfBytes(std::string_view path) {
  while (path.ends_with('/')) path.remove_suffix(1);
  const std::string_view component = path.substr(path.rfind('/') + 1);
  const std::size_t dot = component.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return std::string(component.substr(dot + 1));
}

}  // namespace

std::string lowercased(std::string_view text) {
  if (isASCII(text)) return lowercasedASCII(text);
  const tulo::apple::AutoreleasePool pool;
  return transformed(text, [](NSString *run) { return [run lowercaseString]; });
}

std::string precomposed(std::string_view text) {
  if (isASCII(text)) return std::string(text);
  const tulo::apple::AutoreleasePool pool;
  return transformed(text,
                     [](NSString *run) { return [run precomposedStringWithCanonicalMapping]; });
}

std::optional<std::size_t> lengthOfPrefix(std::string_view text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return std::nullopt;
  if (!apple::isCharacterBoundary(text, prefix.size())) return std::nullopt;
  return prefix.size();
}

std::optional<std::size_t> offsetOfLastDot(std::string_view text) {
  for (std::size_t end = text.size(); end > 0;) {
    const std::size_t dot = text.rfind('.', end - 1);
    if (dot == std::string_view::npos) break;
    if (apple::isCharacterBoundary(text, dot) && apple::isCharacterBoundary(text, dot + 1)) {
      return dot;
    }
    end = dot;
  }
  return std::nullopt;
}

std::string_view suffix(std::string_view text, std::size_t count) {
  std::size_t start = text.size();
  while (count-- > 0 && start > 0) {
    start = apple::previousCharacter(text, start);
  }
  return text.substr(start);
}

std::string pathExtension(std::string_view path) {
  const apple::AutoreleasePool pool;
  if (utf8::isValid(path)) return apple::toString([apple::toNSString(path) pathExtension]);
  return extensionOfBytes(path);
}

}  // namespace tulo::platform::text
