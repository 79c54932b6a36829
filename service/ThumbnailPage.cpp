#include "service/ThumbnailPage.h"

#include <optional>
#include <string_view>
#include <utility>

namespace tulo {

namespace {

constexpr std::size_t kPage = 256;

}  // namespace

std::vector<ThumbnailFile> thumbnailPage(ReplicaReader& reader, const std::string& mountPoint,
                                         NodeId folder, NodeId& after) {
  std::string base = mountPoint;
  for (const std::string& part : reader.path(folder))
    base += '/' + part;
  std::vector<std::pair<NodeId, std::string>> names;
  reader.children(folder, after, [&](const Entry& entry, std::string_view name) {
    after = entry.id;
    if (entry.kind == NodeKind::file) names.emplace_back(entry.id, name);
    return names.size() < kPage;
  });
  std::vector<ThumbnailFile> page;
  for (const auto& [id, name] : names) {
    const std::optional<Node> node = reader.node(id);
    if (!node || node->identifier.empty()) continue;
    page.push_back({node->identifier, {base + '/' + name, node->modified.whole, node->size}});
  }
  return page;
}

}  // namespace tulo
