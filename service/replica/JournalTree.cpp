#include "service/replica/JournalTree.h"

#include "service/replica/ReplicaColumns.h"
#include "service/replica/Sql.h"

namespace tulo::journal {

namespace {

constexpr int kDeepest = 4096;

}  // namespace

bool anyBelow(ReplicaReader& reader, NodeId node) {
  sqlite::Statement& statement =
      sqlOf(reader)
          .cached(
              "WITH RECURSIVE below(id) AS (SELECT ?1 UNION ALL SELECT node.id FROM "
              "node JOIN below ON node.parent=below.id) SELECT 1 FROM below JOIN "
              "node USING (id) WHERE node.identifier IS NULL OR id IN (SELECT node "
              "FROM pending) LIMIT 1")
          .bind(node);
  sqlite::StatementUse use(statement);
  return statement.step();
}

std::vector<NodeId> within(ReplicaReader& reader, NodeId node) {
  // What is deleted is in no folder any more; its former one is the one that the host has it in.
  return columns::idsFrom(
      sqlOf(reader)
          .cached(
              "WITH RECURSIVE up(change,id,depth) AS (SELECT node,node,0 FROM pending UNION ALL "
              "SELECT up.change,coalesce(node.parent,(SELECT above.id FROM pending JOIN node AS "
              "above ON above.identifier=pending.base_parent WHERE pending.node=up.id AND "
              "deleted=1)),depth+1 FROM up JOIN node ON node.id=up.id WHERE depth<?2) "
              "SELECT change FROM up WHERE id=?1 ORDER BY depth DESC,change DESC")
          .bind(node, kDeepest));
}

std::vector<NodeId> changedContentsBelow(ReplicaReader& reader, NodeId node) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached("WITH RECURSIVE below(id) AS (SELECT ?1 UNION ALL SELECT node.id FROM node JOIN "
                  "below ON node.parent=below.id) SELECT id FROM below JOIN node USING (id) JOIN "
                  "pending ON pending.node=id WHERE state=2 AND pending.deleted=0")
          .bind(node));
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
  sqlite::Statement& statement =
      sqlOf(reader)
          .cached(
              "WITH RECURSIVE below(id,path) AS (SELECT id,name FROM node WHERE parent=?1 UNION "
              "ALL SELECT node.id,below.path||'/'||node.name FROM node JOIN below ON "
              "node.parent=below.id) SELECT path FROM below JOIN node USING (id) WHERE identifier "
              "IS NULL AND NOT EXISTS (SELECT 1 FROM pending WHERE pending.node=id) LIMIT ?2")
          .bind(folder, limit);
  sqlite::StatementUse use(statement);
  std::vector<std::string> result;
  while (statement.step())
    result.emplace_back(statement.text(0));
  return result;
}

}  // namespace tulo::journal
