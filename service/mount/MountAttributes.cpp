#include <array>

#include "service/edits/Pending.h"
#include "service/mount/MountSession.h"

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

constexpr std::array<std::string_view, 10> kNames = {
    "user.tulo.identifier", "user.tulo.filename", "user.tulo.state",
    "user.tulo.pinned",     "user.tulo.kept",     "user.tulo.content-version",
    "user.tulo.domain",     "user.tulo.error",    "user.tulo.pending",
    "user.tulo.local"};

bool isLocal(const Subject& subject) {
  if (subject.node.id == kRootNode) return false;
  return subject.change ? subject.change->held : subject.node.identifier.empty();
}

std::optional<std::string> errorOf(const Subject& subject) {
  if (!subject.node.error.empty()) return subject.node.error;
  if (subject.change && !subject.change->reason.empty()) return subject.change->reason;
  return std::nullopt;
}

std::optional<std::string> pendingOf(const Subject& subject) {
  if (!subject.change || subject.change->held) return std::nullopt;
  return pending::kindOf(*subject.change);
}

}  // namespace

std::optional<Subject> subject(ReplicaReader& reader, NodeId id) {
  const std::optional<Node> node = reader.node(id);
  if (!node) return std::nullopt;
  return Subject{*node, journal::find(reader, id)};
}

std::optional<std::string> value(const Subject& subject, std::string_view name,
                                 std::string_view domain) {
  const Node& node = subject.node;
  if (name == kNames[0]) return node.identifier;
  if (name == kNames[1]) return node.filename;
  if (name == kNames[2]) return stateName(node, isLocal(subject));
  if (name == kNames[3]) return node.pinned ? "1" : "0";
  if (name == kNames[4]) return node.kept ? "1" : "0";
  if (name == kNames[5] && node.kind == NodeKind::file) return node.contentVersion;
  if (name == kNames[6]) return std::string(domain);
  if (name == kNames[7]) return errorOf(subject);
  if (name == kNames[8]) return pendingOf(subject);
  if (name == kNames[9] && isLocal(subject)) return "1";
  return std::nullopt;
}

std::vector<std::string> names(const Subject& subject) {
  std::vector<std::string> result;
  for (std::string_view name : kNames) {
    if (value(subject, name, "")) result.emplace_back(name);
  }
  return result;
}

}  // namespace tulo::attributes
