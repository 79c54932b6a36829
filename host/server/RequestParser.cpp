#include "host/server/RequestParser.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

using Json = nlohmann::json;

// Reads the keys of one request object.
class Fields {
 public:
  Fields(const Json& object, std::string_view op) : object_(object), op_(op) {}

  std::string text(const char* key) const {
    const Json* value = find(key);
    if (value == nullptr) fail(std::string("has no \"") + key + "\"");
    return asText(key, *value);
  }

  std::optional<std::string> optionalText(const char* key) const {
    const Json* value = find(key);
    if (value == nullptr) return std::nullopt;
    return asText(key, *value);
  }

  std::optional<std::optional<std::string>> parentOfMove() const {
    if (!object_.contains("parent")) return std::nullopt;
    return std::optional<std::optional<std::string>>(optionalText("parent"));
  }

  bool boolean(const char* key) const {
    const Json* value = find(key);
    if (value == nullptr) fail(std::string("has no \"") + key + "\"");
    if (!value->is_boolean()) fail(std::string("\"") + key + "\" is not true or false");
    return value->get<bool>();
  }

  std::int64_t integer(const char* key) const {
    const Json* value = find(key);
    if (value == nullptr) fail(std::string("has no \"") + key + "\"");
    if (!value->is_number_integer() ||
        (value->is_number_unsigned() && value->get<std::uint64_t>() > INT64_MAX)) {
      fail(std::string("\"") + key + "\" is not an integer of 64 bits");
    }
    return value->get<std::int64_t>();
  }

 private:
  // Null for a key that is left out or null.
  const Json* find(const char* key) const {
    const auto found = object_.find(key);
    return found == object_.end() || found->is_null() ? nullptr : &*found;
  }

  std::string asText(const char* key, const Json& value) const {
    if (!value.is_string()) fail(std::string("\"") + key + "\" is not a string");
    return value.get<std::string>();
  }

  [[noreturn]] void fail(const std::string& what) const {
    throw BadRequest("the request \"" + std::string(op_) + "\" " + what);
  }

  const Json& object_;
  std::string_view op_;
};

std::optional<Request> requestOf(std::string_view op, const Fields& in) {
  if (op == "fetch") return FetchRequest{in.text("account"), in.text("ulid")};
  if (op == "thumbnail") return ThumbnailRequest{in.text("account"), in.text("ulid")};
  if (op == "create") {
    return CreateRequest{in.text("account"), in.text("name"), in.optionalText("parent"),
                         in.optionalText("path")};
  }
  if (op == "modify") {
    return ModifyRequest{in.text("account"),      in.text("ulid"),         in.boolean("is_folder"),
                         in.optionalText("path"), in.optionalText("name"), in.parentOfMove()};
  }
  if (op == "delete") {
    return DeleteRequest{.account = in.text("account"),
                         .ulid = in.text("ulid"),
                         .isFolder = in.boolean("is_folder")};
  }
  if (op == "lock") return LockRequest{in.text("account"), in.text("path"), in.integer("user")};
  if (op == "unlock") return LockRequest{in.text("account"), in.text("path"), std::nullopt};
  if (op == "login") return SignInRequest{in.text("account"), true};
  if (op == "logout") return SignInRequest{in.text("account"), false};
  if (op == "status") return StatusRequest{};
  return std::nullopt;
}

}  // namespace

Request parseRequest(std::string_view text) {
  if (text.size() > maximumRequestSize) {
    throw BadRequest("the request is longer than " + std::to_string(maximumRequestSize) + " bytes");
  }
  const Json object = Json::parse(text, nullptr, false);
  if (object.is_discarded()) throw BadRequest("the request is not JSON in UTF-8");
  if (!object.is_object()) throw BadRequest("the request is not a JSON object");
  const auto op = object.find("op");
  if (op == object.end()) throw BadRequest("the request has no \"op\"");
  if (!op->is_string()) throw BadRequest("\"op\" is not a string");
  const auto name = op->get<std::string>();
  auto request = requestOf(name, Fields(object, name));
  if (!request) throw BadRequest("there is no operation \"" + name + "\"");
  return *std::move(request);
}

}  // namespace tulo::host
