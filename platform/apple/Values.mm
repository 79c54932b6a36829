#import <FileProvider/FileProvider.h>

#include "platform/apple/Values.h"

#include <algorithm>

#include "platform/UTF8.h"

namespace tulo::apple {

namespace {

constexpr char32_t replacement = 0xFFFD;

void appendUTF16(std::u16string &units, char32_t codePoint) {
  if (codePoint < 0x10000) {
    units += static_cast<char16_t>(codePoint);
    return;
  }
  codePoint -= 0x10000;
  units += static_cast<char16_t>(0xD800 + (codePoint >> 10U));
  units += static_cast<char16_t>(0xDC00 + (codePoint & 0x3FFU));
}

void appendUTF8(std::string &text, char32_t codePoint) {
  const auto append = [&text](char32_t byte) { text += static_cast<char>(byte); };
  const auto continuation = [&](unsigned shift) { append(0x80 | ((codePoint >> shift) & 0x3FU)); };
  if (codePoint < 0x80) return append(codePoint);
  if (codePoint < 0x800) {
    append(0xC0 | (codePoint >> 6U));
  } else if (codePoint < 0x10000) {
    append(0xE0 | (codePoint >> 12U));
    continuation(6);
  } else {
    append(0xF0 | (codePoint >> 18U));
    continuation(12);
    continuation(6);
  }
  continuation(0);
}

std::u16string toUTF16(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  while (!text.empty()) {
    const auto codePoint = platform::utf8::firstCodePoint(text);
    appendUTF16(units, codePoint.value_or(replacement));
    text.remove_prefix(codePoint ? platform::utf8::sequenceLength(text) : 1);
  }
  return units;
}

std::string toUTF8(std::u16string_view units) {
  const auto isLead = [](char32_t unit) { return unit >= 0xD800 && unit < 0xDC00; };
  const auto isTrail = [](char32_t unit) { return unit >= 0xDC00 && unit < 0xE000; };
  std::string text;
  text.reserve(units.size());
  for (std::size_t index = 0; index < units.size(); ++index) {
    const char32_t unit = units[index];
    if (isLead(unit) && index + 1 < units.size() && isTrail(units[index + 1])) {
      appendUTF8(text, 0x10000 + ((unit - 0xD800) << 10U) + (units[++index] - 0xDC00U));
    } else {
      appendUTF8(text, isLead(unit) || isTrail(unit) ? replacement : unit);
    }
  }
  return text;
}

NSDictionary *toNSDictionary(const std::map<std::string, std::string> &values) {
  NSMutableDictionary *dictionary = [NSMutableDictionary dictionary];
  for (const auto &[key, value] : values) {
    [dictionary setObject:toNSString(value) forKey:toNSString(key)];
  }
  return dictionary;
}

}  // namespace

NSString *toNSString(std::string_view text) {
  const std::u16string units = toUTF16(text);
  return [NSString stringWithCharacters:reinterpret_cast<const unichar *>(units.data())
                                 length:units.size()];
}

std::string toString(NSString *string) {
  std::u16string units([string length], u'\0');
  [string getCharacters:reinterpret_cast<unichar *>(units.data())
                  range:NSMakeRange(0, units.size())];
  return toUTF8(units);
}

NSData *toNSData(const platform::Data &data) {
  return [NSData dataWithBytes:data.data() length:data.size()];
}

platform::Data toData(NSData *data) {
  return {static_cast<const char *>([data bytes]), static_cast<std::size_t>([data length])};
}

NSURL *toNSURL(const platform::URL &url) {
  const std::string &path = url.path();
  // Foundation would take the empty path for the working directory, and end another at its NUL.
  if (path.empty() || path.find('\0') != std::string::npos) {
    return [NSURL URLWithString:@"file://"];
  }
  // Said not to be a directory, lest the file system is asked and a solidus appended.
  return [NSURL fileURLWithPath:toNSString(url.path()) isDirectory:NO];
}

NSURL *toNSURL(const std::optional<platform::URL> &url) { return url ? toNSURL(*url) : nil; }

std::optional<platform::URL> toURL(NSURL *url) {
  if (url == nil) return std::nullopt;
  return platform::URL(toString([url path]));
}

NSError *toNSError(const platform::NSError &error) {
  NSString *domain = error.domain == platform::NSFileProviderErrorDomain ? NSFileProviderErrorDomain
                     : error.domain == platform::NSCocoaErrorDomain      ? NSCocoaErrorDomain
                                                                         : toNSString(error.domain);
  NSDictionary *userInfo = error.userInfo ? toNSDictionary(*error.userInfo) : nil;
  return [NSError errorWithDomain:domain code:static_cast<NSInteger>(error.code) userInfo:userInfo];
}

NSError *toNSError(const std::optional<platform::NSError> &error) {
  return error ? toNSError(*error) : nil;
}

}  // namespace tulo::apple
