#include "service/upload/Reappearance.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include "service/replica/Ancestors.h"
#include "service/replica/JournalTree.h"

namespace tulo {

std::vector<NodeId> Reappearance::foldersAbove(NodeId node) {
  std::vector<NodeId> folders;
  parts_.replica.read([&](ReplicaReader& reader) {
    while (node != kRootNode && node != kNoNode && folders.size() < kDeepest) {
      node = journal::folderAtHost(reader, node);
      if (node != kNoNode) folders.push_back(node);
    }
  });
  std::reverse(folders.begin(), folders.end());
  return folders;
}

bool Reappearance::hasAnother(NodeId node, const std::string& identifier) {
  for (NodeId folder : foldersAbove(node)) {
    const int error = parts_.list(folder);
    if (error != 0 && error != ESTALE) {
      throw std::runtime_error("what the host has instead cannot be seen at the moment");
    }
  }
  const auto row = parts_.replica.read([&](ReplicaReader& reader) { return reader.node(node); });
  return row && !row->identifier.empty() && row->identifier != identifier;
}

bool Reappearance::ofItem(const Plan& plan) {
  return hasAnother(plan.node.id, plan.node.identifier);
}

bool Reappearance::ofFolder(const Plan& plan) {
  const auto folder = parts_.replica.read(
      [&](ReplicaReader& reader) { return reader.nodeFor(plan.parentIdentifier); });
  // Somebody saw to it meanwhile.
  if (!folder) return true;
  return hasAnother(folder->id, plan.parentIdentifier);
}

}  // namespace tulo
