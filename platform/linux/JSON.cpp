#include "platform/JSON.h"

#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <utility>

namespace tulo::platform {

namespace {

using nlohmann::json;

constexpr std::size_t maximumDepth = 512;

json encodedNumber(double number) {
  if (!std::isfinite(number)) throw JSONSerializationError("a number in the object is not finite");
  // Up to here every whole number is exact, and peers expect to see it without a fraction.
  constexpr double largestExact = 9007199254740992.0;
  if (std::abs(number) <= largestExact && number == std::trunc(number)) {
    return static_cast<std::int64_t>(number);
  }
  return number;
}

struct Encode {
  json operator()(std::nullptr_t) const { return nullptr; }
  json operator()(bool value) const { return value; }
  json operator()(double value) const { return encodedNumber(value); }
  json operator()(const std::string& value) const { return value; }
  json operator()(const JSONContainer&) const { return json::object(); }
};

std::string withEscapedSolidus(const std::string& text) {
  std::string escaped;
  escaped.reserve(text.size() + 16);
  for (const char c : text) {
    if (c == '/') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

// Builds the top-level object while the text is read; what is inside nested containers is checked
// by the reader and dropped here.
class TopLevelReader final : public nlohmann::json_sax<json> {
 public:
  JSONObject takeObject() { return std::move(object_); }

  bool null() override { return scalar(nullptr); }
  bool boolean(bool value) override { return scalar(value); }
  bool number_integer(number_integer_t value) override {
    return scalar(static_cast<double>(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    return scalar(static_cast<double>(value));
  }
  bool number_float(number_float_t value, const string_t&) override {
    return std::isfinite(value) && scalar(value);
  }
  bool string(string_t& value) override { return scalar(std::move(value)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override {
    if (depth_ == 0) return ++depth_ > 0;
    return enterNested();
  }
  bool start_array(std::size_t) override { return depth_ > 0 && enterNested(); }
  bool end_object() override { return leave(); }
  bool end_array() override { return leave(); }
  bool key(string_t& value) override {
    if (depth_ == 1) key_ = std::move(value);
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  bool scalar(JSONValue value) {
    if (depth_ == 1) object_.insert_or_assign(std::move(key_), std::move(value));
    return depth_ > 0;
  }

  bool enterNested() {
    scalar(JSONContainer{});
    return ++depth_ <= maximumDepth;
  }

  bool leave() {
    --depth_;
    return true;
  }

  JSONObject object_;
  std::string key_;
  std::size_t depth_ = 0;
};

}  // namespace

std::string JSONSerialization::data(const JSONObject& object) {
  json encoded = json::object();
  for (const auto& [key, value] : object)
    encoded.emplace(key, std::visit(Encode{}, value));
  try {
    // In compact text a solidus can only stand inside a string.
    return withEscapedSolidus(encoded.dump(-1, ' ', false, json::error_handler_t::strict));
  } catch (const json::exception& failure) {
    throw JSONSerializationError(failure.what());
  }
}

std::optional<JSONObject> JSONSerialization::object(std::string_view text) {
  // A NUL byte is never part of JSON text, but the reader would take it for the end.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  TopLevelReader reader;
  if (!json::sax_parse(text.begin(), text.end(), &reader)) return std::nullopt;
  return reader.takeObject();
}

}  // namespace tulo::platform
