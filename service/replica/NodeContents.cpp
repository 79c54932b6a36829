#include "service/replica/NodeContents.h"

#include "service/replica/ReplicaColumns.h"
#include "service/replica/Sql.h"

namespace tulo::nodeContents {

void adopt(ReplicaWriter& writer, NodeId node, ContentId content, std::int64_t blocks) {
  sqlite::Connection& database = sqlOf(writer);
  database.cached("UPDATE content SET used=0 WHERE node=? AND id<>?").bind(node, content).run();
  database.cached("UPDATE content SET used=1,blocks=? WHERE id=?").bind(blocks, content).run();
  database.cached("UPDATE node SET state=1,content=?,blocks=?,error=NULL WHERE id=?")
      .bind(content, blocks, node)
      .run();
}

void drop(ReplicaWriter& writer, NodeId node) {
  sqlite::Connection& database = sqlOf(writer);
  database.cached("UPDATE content SET used=0 WHERE node=?").bind(node).run();
  database.cached("UPDATE node SET state=0,content=0,blocks=0 WHERE id=?").bind(node).run();
}

void beginChange(ReplicaWriter& writer, NodeId node, ContentId content) {
  sqlite::Connection& database = sqlOf(writer);
  database.cached("UPDATE content SET used=1,durable=0 WHERE id=?").bind(content).run();
  database.cached("UPDATE node SET state=2,content=? WHERE id=?").bind(content, node).run();
}

void recover(ReplicaWriter& writer, NodeId node, ContentId content, std::int64_t size,
             std::int64_t blocks) {
  sqlite::Connection& database = sqlOf(writer);
  database.cached("INSERT OR REPLACE INTO content (id,node,used,blocks) VALUES (?,?,1,?)")
      .bind(content, node, blocks)
      .run();
  database.cached("UPDATE node SET state=2,content=?,size=?,blocks=? WHERE id=?")
      .bind(content, size, blocks, node)
      .run();
}

void set(ReplicaWriter& writer, NodeId node, ContentId content) {
  sqlOf(writer).cached("UPDATE node SET content=? WHERE id=?").bind(content, node).run();
}

void markDirty(ReplicaWriter& writer, NodeId node) {
  sqlOf(writer).cached("UPDATE node SET state=2 WHERE id=?").bind(node).run();
}

void markDirtyIfAny(ReplicaWriter& writer, NodeId node) {
  sqlOf(writer).cached("UPDATE node SET state=2 WHERE id=? AND content<>0").bind(node).run();
}

void markDownloaded(ReplicaWriter& writer, NodeId node) {
  sqlOf(writer).cached("UPDATE node SET state=1 WHERE id=?").bind(node).run();
}

void dropDoubtful(ReplicaWriter& writer) {
  sqlOf(writer).execute(
      "UPDATE node SET state=0,content=0,blocks=0 WHERE state=1 AND id IN "
      "(SELECT node FROM content WHERE durable=0 AND used=1);"
      "UPDATE content SET used=0 WHERE durable=0 AND "
      "NOT EXISTS (SELECT 1 FROM node WHERE node.id=content.node AND state=2) AND "
      "id NOT IN (SELECT sent_content FROM pending);");
}

std::vector<Cached> leastUsed(ReplicaReader& reader, const Cached& after, std::int64_t limit) {
  sqlite::Statement& statement =
      sqlOf(reader)
          .cached(
              "SELECT id,last_used,blocks FROM node INDEXED BY node_cached WHERE state=1 AND "
              "kept=0 AND (last_used,id)>(?,?) ORDER BY last_used,id LIMIT ?")
          .bind(after.lastUsed, after.node, limit);
  sqlite::StatementUse use(statement);
  std::vector<Cached> result;
  while (statement.step()) {
    result.push_back({NodeId(static_cast<std::uint64_t>(statement.integer(0))),
                      WallSeconds(seconds(statement.integer(1))), statement.integer(2)});
  }
  return result;
}

std::vector<NodeId> changed(ReplicaReader& reader) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached("SELECT node FROM pending WHERE contents=1 AND node>?1 UNION SELECT id FROM node "
                  "INDEXED BY node_unknown WHERE identifier IS NULL AND state=2 AND id>?1 LIMIT ?2")
          .bind(0, -1));
}

}  // namespace tulo::nodeContents
