#include "platform/JSON.h"

#include <cmath>

#include "platform/UTF8.h"
#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Values.h"

namespace tulo::platform {

namespace {

constexpr std::size_t maximumDepth = 512;

// Text that is not UTF-8 must not reach the serializer with its bad bytes replaced.
NSString *encodedText(std::string_view text) {
  if (!utf8::isValid(text)) throw JSONSerializationError("text in the object is not UTF-8");
  return apple::toNSString(text);
}

NSNumber *encodedNumber(double number) {
  if (!std::isfinite(number)) throw JSONSerializationError("a number in the object is not finite");
  // Up to here every whole number is exact, and peers expect to see it without a fraction.
  constexpr double largestExact = 9007199254740992.0;
  if (std::abs(number) <= largestExact && number == std::trunc(number)) {
    return [NSNumber numberWithLongLong:static_cast<long long>(number)];
  }
  return [NSNumber numberWithDouble:number];
}

struct Encode {
  id operator()(std::nullptr_t) const { return [NSNull null]; }
  id operator()(bool value) const { return [NSNumber numberWithBool:value]; }
  id operator()(double value) const { return encodedNumber(value); }
  id operator()(const std::string &value) const { return encodedText(value); }
  id operator()(const JSONContainer &) const { return [NSDictionary dictionary]; }
};

NSDictionary *encodedObject(const JSONObject &object) {
  NSMutableDictionary *encoded = [NSMutableDictionary dictionaryWithCapacity:object.size()];
  for (const auto &[key, value] : object) {
    [encoded setObject:std::visit(Encode{}, value) forKey:encodedText(key)];
  }
  return encoded;
}

// Truth values are numbers of a class of their own, which their Objective-C type does not tell
// from a small integer's.
bool isTruthValue(id value) { return [value isKindOfClass:[[NSNumber numberWithBool:YES] class]]; }

JSONValue decodedValue(id value) {
  if ([value isKindOfClass:[NSString class]]) return apple::toString(value);
  if (isTruthValue(value)) return static_cast<bool>([value boolValue]);
  if ([value isKindOfClass:[NSNumber class]]) return [value doubleValue];
  if (value == [NSNull null]) return nullptr;
  return JSONContainer{};
}

JSONObject decodedObject(NSDictionary *decoded) {
  JSONObject object;
  for (NSString *key in decoded) {
    object.insert_or_assign(apple::toString(key), decodedValue([decoded objectForKey:key]));
  }
  return object;
}

// Brackets outside of strings, so that the reader is never led deeper than its stack goes.
bool nestsTooDeep(std::string_view text) {
  std::size_t depth = 0;
  bool inString = false;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char c = text[index];
    if (inString && c == '\\') ++index;
    if (c == '"') inString = !inString;
    if (inString) continue;
    if ((c == '{' || c == '[') && ++depth > maximumDepth) return true;
    if ((c == '}' || c == ']') && depth > 0) --depth;
  }
  return false;
}

// The reader would guess at other encodings: by NUL bytes at UTF-16 and UTF-32.
bool isReadable(std::string_view text) {
  return text.find('\0') == std::string_view::npos && utf8::isValid(text) && !nestsTooDeep(text);
}

}  // namespace

std::string JSONSerialization::data(const JSONObject &object) {
  const apple::AutoreleasePool pool;
  ::NSError *error = nil;
  NSData *data = [NSJSONSerialization dataWithJSONObject:encodedObject(object)
                                                 options:0
                                                   error:&error];
  if (data == nil) throw JSONSerializationError(apple::toString([error localizedDescription]));
  return apple::toData(data);
}

std::optional<JSONObject> JSONSerialization::object(std::string_view text) {
  if (!isReadable(text)) return std::nullopt;
  const apple::AutoreleasePool pool;
  NSData *data = [NSData dataWithBytes:text.data() length:text.size()];
  const id decoded = [NSJSONSerialization JSONObjectWithData:data options:0 error:nullptr];
  if (![decoded isKindOfClass:[NSDictionary class]]) return std::nullopt;
  return decodedObject(decoded);
}

}  // namespace tulo::platform
