#include "service/replica/JournalTree.h"

#include <optional>

#include "service/replica/Ancestors.h"
#include "service/replica/Journal.h"
#include "service/replica/ReplicaColumns.h"
#include "service/replica/Sql.h"

namespace tulo::journal {

// None of these relies on the tree having no circle: what was found once is not gone through again,
// and ways up have an end.

namespace {

// How the node is reached from the folder that it is in or below.
std::string pathFrom(ReplicaReader& reader, NodeId folder, NodeId node) {
  std::string path;
  firstUpwards(reader, node, [&](const Node& row) {
    if (row.id == folder) return true;
    path = path.empty() ? row.name : row.name + '/' + path;
    return false;
  });
  return path;
}

}  // namespace

bool anyBelow(ReplicaReader& reader, NodeId node) {
  sqlite::Statement& statement =
      sqlOf(reader)
          .cached(
              "WITH RECURSIVE below(id) AS (SELECT ?1 UNION SELECT node.id FROM "
              "node JOIN below ON node.parent=below.id) SELECT 1 FROM below JOIN "
              "node USING (id) WHERE node.identifier IS NULL OR id IN (SELECT node "
              "FROM pending) LIMIT 1")
          .bind(node);
  sqlite::StatementUse use(statement);
  return statement.step();
}

bool anyToSendBelow(ReplicaReader& reader, NodeId node) {
  sqlite::Statement& statement =
      sqlOf(reader)
          .cached(
              "WITH RECURSIVE below(id) AS (SELECT ?1 UNION SELECT node.id FROM node JOIN below "
              "ON node.parent=below.id) SELECT 1 FROM below JOIN node ON node.id=below.id JOIN "
              "pending ON pending.node=below.id LEFT JOIN node AS above ON above.id=node.parent "
              "WHERE deleted=0 AND held=0 AND (contents=1 OR node.identifier IS NULL OR "
              "base_parent IS NOT above.identifier) LIMIT 1")
          .bind(node);
  sqlite::StatementUse use(statement);
  return statement.step();
}

std::vector<NodeId> localBelow(ReplicaReader& reader, NodeId folder) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached("WITH RECURSIVE below(id) AS (SELECT id FROM node WHERE parent=?1 UNION SELECT "
                  "node.id FROM node JOIN below ON node.parent=below.id JOIN node AS above ON "
                  "above.id=below.id WHERE above.identifier IS NOT NULL OR EXISTS (SELECT 1 FROM "
                  "pending WHERE pending.node=above.id)) SELECT id FROM below JOIN node USING (id) "
                  "LEFT JOIN pending ON pending.node=id WHERE (identifier IS NULL AND pending.node "
                  "IS NULL) OR (held=1 AND state<>0)")
          .bind(folder));
}

std::vector<NodeId> within(ReplicaReader& reader, NodeId node) {
  // What is deleted is in no folder any more; its former one is the one that the host has it in.
  return columns::idsFrom(
      sqlOf(reader)
          .cached(
              "WITH RECURSIVE up(change,id,depth) AS (SELECT node,node,0 FROM pending UNION ALL "
              "SELECT up.change,coalesce(node.parent,(SELECT above.id FROM pending JOIN node AS "
              "above ON above.identifier=pending.base_parent WHERE pending.node=up.id AND "
              "deleted=1)),depth+1 FROM up JOIN node ON node.id=up.id WHERE depth<?2 AND "
              "up.id<>?1) SELECT change FROM up WHERE id=?1 ORDER BY depth DESC,change DESC")
          .bind(node, kDeepest));
}

std::vector<NodeId> changedContentsBelow(ReplicaReader& reader, NodeId node) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached("WITH RECURSIVE below(id) AS (SELECT ?1 UNION SELECT node.id FROM node JOIN "
                  "below ON node.parent=below.id) SELECT id FROM below JOIN node USING (id) LEFT "
                  "JOIN pending ON pending.node=id WHERE state=2 AND "
                  "coalesce(pending.deleted=0,identifier IS NOT NULL)")
          .bind(node));
}

bool isAnyWithin(ReplicaReader& reader, NodeId node, const std::vector<NodeId>& nodes) {
  for (NodeId at : nodes) {
    for (std::size_t depth = 0; depth < kDeepest && at != kNoNode && at != node; ++depth) {
      const std::optional<OpenLookup> row = reader.openLookup(at);
      at = row ? row->parent : kNoNode;
    }
    if (at == node) return true;
  }
  return false;
}

NodeId folderAtHost(ReplicaReader& reader, NodeId node) {
  const std::optional<Change> change = find(reader, node);
  if (change && change->base().isPlaced()) {
    const std::optional<Node> home = reader.nodeFor(change->base().place.parent);
    return home ? home->id : kNoNode;
  }
  const std::optional<Node> row = reader.node(node);
  return row ? row->parent : kNoNode;
}

void hurry(ReplicaWriter& writer, NodeId node, WallTime now) {
  sqlOf(writer)
      .cached(
          "WITH RECURSIVE up(id) AS (SELECT ?1 UNION SELECT node.parent FROM node JOIN up "
          "USING (id) WHERE node.parent IS NOT NULL) UPDATE pending SET due=min(due,?2) "
          "WHERE attention=0 AND held=0 AND node IN (SELECT id FROM up)")
      .bind(node, now)
      .run();
}

std::vector<NodeId> localNodes(ReplicaReader& reader, std::int64_t limit) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached(
              "SELECT id FROM node INDEXED BY node_unknown WHERE identifier IS NULL AND parent>0 "
              "AND id NOT IN (SELECT node FROM pending) UNION SELECT node FROM pending WHERE "
              "held=1 ORDER BY 1 LIMIT ?")
          .bind(limit));
}

std::int64_t countLocal(ReplicaReader& reader) {
  return sqlOf(reader).integer(
      "SELECT (SELECT count(*) FROM node INDEXED BY node_unknown WHERE identifier IS NULL AND "
      "parent>0 AND NOT EXISTS (SELECT 1 FROM pending WHERE pending.node=node.id)) + "
      "(SELECT count(*) FROM pending WHERE held=1)");
}

std::vector<std::string> localPaths(ReplicaReader& reader, NodeId folder, std::int64_t limit) {
  const std::vector<NodeId> local = columns::idsFrom(
      sqlOf(reader)
          .cached("WITH RECURSIVE below(id) AS (SELECT id FROM node WHERE parent=?1 UNION SELECT "
                  "node.id FROM node JOIN below ON node.parent=below.id) SELECT id FROM below JOIN "
                  "node USING (id) WHERE identifier IS NULL AND NOT EXISTS (SELECT 1 FROM pending "
                  "WHERE pending.node=id) LIMIT ?2")
          .bind(folder, limit));
  std::vector<std::string> result;
  result.reserve(local.size());
  for (const NodeId node : local)
    result.push_back(pathFrom(reader, folder, node));
  return result;
}

}  // namespace tulo::journal
