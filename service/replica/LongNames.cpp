#include "service/replica/LongNames.h"

#include <optional>
#include <string>
#include <vector>

#include "service/base/MarkedName.h"
#include "service/base/Names.h"
#include "service/base/ServiceLog.h"
#include "service/base/Time.h"
#include "service/errors/ContentError.h"
#include "service/replica/Journal.h"
#include "service/replica/ReplicaColumns.h"
#include "service/replica/Sql.h"

namespace tulo {

namespace {

std::vector<NodeId> tooLong(ReplicaReader& reader) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached("SELECT id FROM node INDEXED BY node_unknown WHERE identifier IS NULL AND parent "
                  "IS NOT NULL AND length(CAST(name AS BLOB))>?")
          .bind(static_cast<std::int64_t>(names::kLongestName)));
}

std::string freeName(ReplicaReader& reader, const Node& node) {
  std::string name = cutMarkedName(node.name, "");
  for (unsigned i = 2; reader.childNamed(node.parent, name); ++i)
    name = cutMarkedName(node.name, " (" + std::to_string(i) + ")");
  return name;
}

// The name by which a file of contents is recovered.
void setName(const ContentStore& store, const Node& node) try {
  if (node.content != kNoContent) store.setName(node.content, node.name);
} catch (const ContentError& error) {
  // That must not keep the service from starting.
  serviceLog().error("cannot name the contents of node %d: %{public}@",
                     {node.id.number(), error.what()});
}

// The host has refused it, or would have.
void sendAgain(ReplicaWriter& writer, NodeId node) {
  std::optional<Change> change = journal::find(writer, node);
  if (!change) return;
  change->request.hadNoEffect();
  change->standing.tryAgain();
  change->standing.startOver(steadyClock());
  journal::put(writer, *change);
}

}  // namespace

std::size_t cutLongNames(Replica& replica, const ContentStore& store) {
  if (replica.read([](ReplicaReader& reader) { return tooLong(reader).empty(); })) return 0;
  std::size_t count = 0;
  replica.write(Durability::durable, [&](ReplicaWriter& writer) {
    count = 0;
    for (const NodeId id : tooLong(writer)) {
      Node node = *writer.node(id);
      node.name = node.filename = freeName(writer, node);
      writer.update(node);
      writer.setError(id, "");
      setName(store, node);
      sendAgain(writer, id);
      ++count;
    }
  });
  return count;
}

}  // namespace tulo
