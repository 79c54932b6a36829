#include "service/replica/LocalTimes.h"

#include "service/replica/Sql.h"

namespace tulo::localTimes {

void note(ReplicaWriter& writer, NodeId node) {
  sqlOf(writer).cached("INSERT OR IGNORE INTO local_time VALUES (?)").bind(node).run();
}

bool isNoted(ReplicaReader& reader, NodeId node) {
  sqlite::Statement& statement =
      sqlOf(reader).cached("SELECT 1 FROM local_time WHERE node=?").bind(node);
  sqlite::StatementUse use(statement);
  return statement.step();
}

void forget(ReplicaWriter& writer, NodeId node) {
  sqlOf(writer).cached("DELETE FROM local_time WHERE node=?").bind(node).run();
}

}  // namespace tulo::localTimes
