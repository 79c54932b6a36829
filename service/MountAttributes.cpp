#include <array>

#include "service/MountSession.h"

namespace tulo::attributes {

namespace {

const char* stateName(const Node& node, bool local) {
  if (local) return "local";
  if (node.kind == NodeKind::folder) return node.listed != 0 ? "listed" : "unlisted";
  switch (node.state) {
    case ContentState::dataless:
      return "dataless";
    case ContentState::downloaded:
      return "downloaded";
    case ContentState::dirty:
      return "modified";
  }
  return "dataless";
}

constexpr std::array<std::string_view, 8> kNames = {
    "user.tulo.identifier",      "user.tulo.filename", "user.tulo.state",  "user.tulo.pinned",
    "user.tulo.content-version", "user.tulo.kept",     "user.tulo.domain", "user.tulo.error"};

}  // namespace

std::optional<std::string> value(const Node& node, std::string_view name, std::string_view domain,
                                 bool local) {
  if (name == kNames[0]) return node.identifier;
  if (name == kNames[1]) return node.filename;
  if (name == kNames[2]) return stateName(node, local);
  if (name == kNames[3]) return node.pinned ? "1" : "0";
  if (name == kNames[4] && node.kind == NodeKind::file) return node.contentVersion;
  if (name == kNames[5]) return node.kept ? "1" : "0";
  if (name == kNames[6]) return std::string(domain);
  if (name == kNames[7] && !node.error.empty()) return node.error;
  return std::nullopt;
}

std::vector<std::string> names(const Node& node) {
  std::vector<std::string> result;
  for (std::string_view name : kNames) {
    if (value(node, name, "")) result.emplace_back(name);
  }
  return result;
}

}  // namespace tulo::attributes
