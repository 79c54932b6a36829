#include "service/replica/Ancestors.h"

namespace tulo {

std::optional<Node> firstUpwards(ReplicaReader& reader, NodeId from,
                                 const std::function<bool(const Node&)>& holds) {
  NodeId id = from;
  for (std::size_t i = 0; i < kDeepest && id != kNoNode; ++i) {
    std::optional<Node> row = reader.node(id);
    if (!row || holds(*row)) return row;
    if (id == kRootNode) return std::nullopt;
    id = row->parent;
  }
  return std::nullopt;
}

bool isInside(ReplicaReader& reader, NodeId node, NodeId ancestor) {
  return firstUpwards(reader, node, [&](const Node& row) { return row.id == ancestor; })
      .has_value();
}

}  // namespace tulo
