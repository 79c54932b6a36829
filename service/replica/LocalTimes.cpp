#include "service/replica/LocalTimes.h"

namespace tulo::localTimes {

void note(ReplicaWriter& writer, NodeId node) {
  writer.connection().cached("INSERT OR IGNORE INTO local_time VALUES (?)").bind(node).run();
}

bool isNoted(ReplicaReader& reader, NodeId node) {
  sqlite::Statement& statement =
      reader.connection().cached("SELECT 1 FROM local_time WHERE node=?").bind(node);
  sqlite::StatementUse use(statement);
  return statement.step();
}

void forget(ReplicaWriter& writer, NodeId node) {
  writer.connection().cached("DELETE FROM local_time WHERE node=?").bind(node).run();
}

}  // namespace tulo::localTimes
