#include "service/listing/MissingSample.h"

#include <algorithm>
#include <string_view>

namespace tulo {

std::vector<std::string> sampleOfMissing(Replica& replica, NodeId folder, const Listing& listing,
                                         const std::unordered_set<std::string>& newer) {
  std::unordered_set<std::string_view> listed;
  for (const ItemRecord& item : listing.items)
    listed.insert(item.identifier);
  const std::vector<Node> children =
      replica.read([&](ReplicaReader& reader) { return reader.childNodes(folder); });
  std::vector<std::string> sample;
  for (const NodeKind kind : {NodeKind::folder, NodeKind::file}) {
    const auto missing = std::find_if(children.begin(), children.end(), [&](const Node& child) {
      return child.kind == kind && !child.identifier.empty() &&
             !listed.contains(child.identifier) && !newer.contains(child.identifier);
    });
    if (missing != children.end()) sample.push_back(missing->identifier);
  }
  return sample;
}

}  // namespace tulo
