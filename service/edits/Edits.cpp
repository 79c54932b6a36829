#include "service/edits/Edits.h"

#include <cerrno>
#include <utility>

#include "service/edits/Capabilities.h"
#include "service/replica/Links.h"

namespace tulo {

Edits::Edits(EditParts parts)
    : parts_(std::move(parts)), newNodes_(parts_), removals_(parts_), renames_(parts_, removals_) {}

std::optional<std::string> Edits::readLink(NodeId link) const {
  return parts_.replica.read([&](ReplicaReader& reader) { return links::target(reader, link); });
}

int Edits::setMode(NodeId node, int mode) {
  parts_.replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    writer.setMode(node, (mode & 0777) | kModeSet);
  });
  return 0;
}

int Edits::mayWrite(NodeId id) const {
  const auto node =
      parts_.replica.readBriefly([&](ReplicaReader& reader) { return reader.node(id); });
  if (!node) return ESTALE;
  if (node->kind != NodeKind::file) return node->kind == NodeKind::folder ? EISDIR : ELOOP;
  return allows(*node, platform::NSFileProviderItemCapabilitiesAllowsWriting) ? 0 : EACCES;
}

}  // namespace tulo
