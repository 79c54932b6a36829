// JSON as the socket protocol needs it: objects at the top level, scalars inside.
//
// Threads: pure functions.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

namespace tulo::platform {

// Stands for a nested array or object, whose contents nobody reads.
struct JSONContainer {
  bool operator==(const JSONContainer&) const = default;
};

using JSONValue = std::variant<std::nullptr_t, bool, double, std::string, JSONContainer>;
using JSONObject = std::map<std::string, JSONValue, std::less<>>;

// The object cannot be written as JSON: text that is not valid UTF-8, a number that is not finite.
class JSONSerializationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class JSONSerialization {
 public:
  JSONSerialization() = delete;

  // Compact JSON text with each solidus escaped; no order of keys is promised.
  // Throws JSONSerializationError. A JSONContainer is written as an empty object.
  static std::string data(const JSONObject& object);

  // The decoded object; nothing for text that is not JSON, is not UTF-8, nests deeper than 512
  // levels, or has anything but an object at its top level. A repeated key keeps its last value.
  static std::optional<JSONObject> object(std::string_view text);
};

}  // namespace tulo::platform
