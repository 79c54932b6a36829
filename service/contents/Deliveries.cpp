#include "service/contents/Deliveries.h"

#include <optional>

#include "service/contents/Blocks.h"
#include "service/replica/ContentRows.h"
#include "service/replica/NodeContents.h"

namespace tulo {

bool Deliveries::adopt(Download& download) {
  std::optional<IncomingContent> content;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    content.emplace(store_, contentRows::reserve(writer, download.node));
  });
  const std::int64_t blocks = store_.take(download.path, download.size, content->number());
  download.path.clear();
  const bool given = give(download, content->number(), blocks);
  store_.room().addUsed(bytesIn(blocks));
  return given;
}

bool Deliveries::give(const Download& download, ContentId content, std::int64_t blocks) {
  bool given = false;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    const std::optional<Node> node = writer.node(download.node);
    given = node && node->contentVersion == download.version && node->size == download.size &&
            node->state == ContentState::dataless;
    if (given) nodeContents::adopt(writer, download.node, content, blocks);
  });
  return given;
}

void Deliveries::discard(Download& download) {
  if (!download.path.empty()) store_.handOver().discard(download.path);
  download.path.clear();
}

}  // namespace tulo
