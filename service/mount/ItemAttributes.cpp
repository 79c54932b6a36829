#include "service/mount/ItemAttributes.h"

#include <array>
#include <utility>

#include "service/edits/Pending.h"
#include "service/replica/Journal.h"

namespace tulo {

namespace {

constexpr std::array<std::string_view, 10> kNames = {
    "user.tulo.identifier", "user.tulo.filename", "user.tulo.state",
    "user.tulo.pinned",     "user.tulo.kept",     "user.tulo.content-version",
    "user.tulo.domain",     "user.tulo.error",    "user.tulo.pending",
    "user.tulo.local"};

}  // namespace

ItemAttributes::ItemAttributes(Node node, std::optional<Change> change)
    : node_(std::move(node)), change_(std::move(change)) {}

std::optional<ItemAttributes> ItemAttributes::of(ReplicaReader& reader, NodeId id) {
  std::optional<Node> node = reader.node(id);
  if (!node) return std::nullopt;
  return ItemAttributes(*std::move(node), journal::find(reader, id));
}

bool ItemAttributes::isLocal() const {
  if (node_.id == kRootNode) return false;
  return change_ ? change_->standing.isHeld() : node_.identifier.empty();
}

const char* ItemAttributes::stateName() const {
  if (isLocal()) return "local";
  if (node_.kind == NodeKind::folder) return node_.listed != 0 ? "listed" : "unlisted";
  switch (node_.state) {
    case ContentState::dataless:
      return "dataless";
    case ContentState::downloaded:
      return "downloaded";
    case ContentState::dirty:
      return "modified";
  }
  return "dataless";
}

std::optional<std::string> ItemAttributes::error() const {
  if (!node_.error.empty()) return node_.error;
  if (change_ && !change_->standing.reason().empty()) return change_->standing.reason();
  return std::nullopt;
}

std::optional<std::string> ItemAttributes::pending() const {
  if (!change_ || change_->standing.isHeld()) return std::nullopt;
  return pending::kindOf(*change_);
}

std::optional<std::string> ItemAttributes::value(std::string_view name,
                                                 std::string_view domain) const {
  if (name == kNames[0]) return node_.identifier;
  if (name == kNames[1]) return node_.filename;
  if (name == kNames[2]) return stateName();
  if (name == kNames[3]) return node_.pinned ? "1" : "0";
  if (name == kNames[4]) return node_.kept ? "1" : "0";
  if (name == kNames[5] && node_.kind == NodeKind::file) return node_.contentVersion;
  if (name == kNames[6]) return std::string(domain);
  if (name == kNames[7]) return error();
  if (name == kNames[8]) return pending();
  if (name == kNames[9] && isLocal()) return "1";
  return std::nullopt;
}

std::vector<std::string> ItemAttributes::names() const {
  std::vector<std::string> result;
  for (std::string_view name : kNames) {
    if (value(name, "")) result.emplace_back(name);
  }
  return result;
}

}  // namespace tulo
