#include "service/edits/StaysLocal.h"

#include "service/replica/Ancestors.h"

namespace tulo {

bool staysLocal(ReplicaReader& reader, const LocalNames& names, NodeId folder,
                std::string_view name) {
  if (names.matches(name)) return true;
  const auto decides = [&](const Node& row) {
    return !row.identifier.empty() || names.matches(row.name);
  };
  const std::optional<Node> deciding = firstUpwards(reader, folder, decides);
  return deciding && deciding->identifier.empty();
}

bool staysLocal(ReplicaReader& reader, const LocalNames& names, const Node& folder,
                std::string_view name) {
  if (folder.identifier.empty()) return staysLocal(reader, names, folder.id, name);
  return names.matches(name);
}

}  // namespace tulo
