#include "host/server/Reply.h"

#include <nlohmann/json.hpp>

namespace tulo::host {

namespace {

std::string line(const nlohmann::json& reply) {
  return reply.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string successReply() {
  return line({{"ok", true}});
}

std::string pathReply(std::string_view path) {
  return line({{"ok", true}, {"path", path}});
}

std::string ulidReply(std::string_view ulid) {
  return line({{"ok", true}, {"ulid", ulid}});
}

std::string statusReply(const std::map<std::string, AccountStatus>& accounts) {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& [name, status] : accounts) {
    list.push_back({{"account", name},
                    {"root", status.root},
                    {"signed_in", status.isSignedIn},
                    {"folders", status.folders},
                    {"items", status.items}});
  }
  return line({{"ok", true}, {"accounts", list}});
}

std::string failureReply(std::string_view kind, std::string_view message) {
  nlohmann::json reply{{"ok", false}, {"error", message}};
  if (!kind.empty()) reply["kind"] = kind;
  return line(reply);
}

}  // namespace tulo::host
