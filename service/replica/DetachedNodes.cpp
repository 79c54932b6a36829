#include "service/replica/DetachedNodes.h"

#include "service/replica/ReplicaColumns.h"
#include "service/replica/Sql.h"

namespace tulo::detachedNodes {

std::vector<NodeId> since(ReplicaReader& reader, WallSeconds latest, std::int64_t limit) {
  return columns::idsFrom(
      sqlOf(reader).cached("SELECT id FROM node WHERE detached<=? LIMIT ?").bind(latest, limit));
}

std::vector<NodeId> unknown(ReplicaReader& reader, std::int64_t limit) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached("SELECT id FROM node WHERE detached>? AND identifier IS NULL LIMIT ?")
          .bind(0, limit));
}

void capTimes(ReplicaWriter& writer, WallSeconds now) {
  sqlOf(writer).cached("UPDATE node SET detached=?1 WHERE detached>?1").bind(now).run();
}

}  // namespace tulo::detachedNodes
