#include "service/control/Requests.h"

#include <array>
#include <utility>

#include "service/control/Fields.h"

namespace tulo::control {

namespace {

using nlohmann::json;

constexpr std::array<std::pair<Operation, const char*>, 10> kOperations = {{
    {Operation::status, "status"},
    {Operation::pin, "pin"},
    {Operation::unpin, "unpin"},
    {Operation::download, "download"},
    {Operation::evict, "evict"},
    {Operation::changes, "changes"},
    {Operation::flush, "flush"},
    {Operation::retry, "retry"},
    {Operation::discard, "discard"},
    {Operation::unmount, "unmount"},
}};

constexpr const char* kLazily = "lazily";
constexpr const char* kByForce = "byForce";

}  // namespace

const char* textOf(Operation operation) {
  for (const auto& [each, text] : kOperations) {
    if (each == operation) return text;
  }
  return "";
}

std::optional<Operation> operationNamed(std::string_view text) {
  for (const auto& [operation, name] : kOperations) {
    if (name == text) return operation;
  }
  return std::nullopt;
}

json requestOf(Operation operation, const json& fields) {
  json request = fields;
  request["op"] = textOf(operation);
  return request;
}

std::string operationText(const json& request) {
  return request.value("op", std::string());
}

void to_json(json& to, const FilesRequest& request) {
  to = {{"nodes", request.nodes}};
}

void from_json(const json& from, FilesRequest& request) {
  getIfThere(from, "nodes", request.nodes);
}

void to_json(json& to, const DeletedName& name) {
  to = {{"folder", name.folder}, {"name", name.name}};
}

void from_json(const json& from, DeletedName& name) {
  from.at("name").get_to(name.name);
  from.at("folder").get_to(name.folder);
}

void to_json(json& to, const ChangesRequest& request) {
  to = json::object();
  if (request.nodes) to["nodes"] = *request.nodes;
  if (request.deleted) to["deleted"] = *request.deleted;
}

void from_json(const json& from, ChangesRequest& request) {
  getIfThere(from, "nodes", request.nodes);
  getIfThere(from, "deleted", request.deleted);
}

void to_json(json& to, const FlushRequest& request) {
  to = request.about;
  to["wait"] = request.wait;
  to["timeout"] = request.timeout.count();
}

void from_json(const json& from, FlushRequest& request) {
  from.get_to(request.about);
  request.timeout = milliseconds(from.value("timeout", milliseconds::rep{0}));
  getIfThere(from, "wait", request.wait);
}

void to_json(json& to, const UnmountRequest& request) {
  to = json::object();
  if (request.how == Leaving::lazily) to["how"] = kLazily;
  if (request.how == Leaving::byForce) to["how"] = kByForce;
}

void from_json(const json& from, UnmountRequest& request) {
  const std::string how = from.value("how", std::string());
  if (how == kLazily) request.how = Leaving::lazily;
  if (how == kByForce) request.how = Leaving::byForce;
}

}  // namespace tulo::control
