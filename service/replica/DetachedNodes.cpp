#include "service/replica/DetachedNodes.h"

#include "service/replica/ReplicaColumns.h"
#include "service/replica/Sql.h"

namespace tulo::detachedNodes {

std::vector<NodeId> since(ReplicaReader& reader, WallSeconds latest, NodeId after,
                          std::int64_t limit) {
  return columns::idsFrom(sqlOf(reader)
                              .cached("SELECT id FROM node INDEXED BY node_detached WHERE "
                                      "detached<=? AND id>? ORDER BY id LIMIT ?")
                              .bind(latest, after, limit));
}

std::vector<NodeId> unknown(ReplicaReader& reader, NodeId after, std::int64_t limit) {
  return columns::idsFrom(sqlOf(reader)
                              .cached("SELECT id FROM node INDEXED BY node_detached WHERE "
                                      "detached>? AND identifier IS NULL AND id>? "
                                      "ORDER BY id LIMIT ?")
                              .bind(0, after, limit));
}

void capTimes(ReplicaWriter& writer, WallSeconds now) {
  sqlOf(writer).cached("UPDATE node SET detached=?1 WHERE detached>?1").bind(now).run();
}

}  // namespace tulo::detachedNodes
