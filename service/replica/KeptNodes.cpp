#include "service/replica/KeptNodes.h"

#include <limits>

#include "service/replica/ReplicaColumns.h"
#include "service/replica/Sql.h"

namespace tulo::keptNodes {

std::vector<NodeId> folders(ReplicaReader& reader) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached("SELECT id FROM node WHERE kept=1 AND kind=1 AND id>? AND parent IS NOT "
                  "NULL LIMIT ?")
          .bind(0, std::numeric_limits<std::int64_t>::max()));
}

std::vector<NodeId> unlistedFolders(ReplicaReader& reader, std::int64_t limit) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached("SELECT id FROM node WHERE kept=1 AND kind=1 AND listed=0 AND id>? AND "
                  "parent IS NOT NULL LIMIT ?")
          .bind(0, limit));
}

std::vector<NodeId> missingFiles(ReplicaReader& reader, NodeId after, std::int64_t limit) {
  return columns::idsFrom(
      sqlOf(reader)
          .cached("SELECT id FROM node WHERE kept=1 AND kind=2 AND state=0 AND size>0 AND "
                  "id>? AND parent IS NOT NULL ORDER BY id LIMIT ?")
          .bind(after, limit));
}

void setPinned(ReplicaWriter& writer, NodeId node, bool pinned) {
  sqlOf(writer).cached("UPDATE node SET pinned=? WHERE id=?").bind(pinned, node).run();
}

void set(ReplicaWriter& writer, NodeId node, bool kept) {
  sqlOf(writer).cached("UPDATE node SET kept=? WHERE id=?").bind(kept, node).run();
}

void setBelow(ReplicaWriter& writer, NodeId folder, bool kept) {
  // A pinned folder keeps what is under it whatever becomes of the folders above.
  sqlOf(writer)
      .cached(
          "WITH RECURSIVE below(id) AS (SELECT id FROM node WHERE parent=?1 AND pinned=0 UNION "
          "SELECT node.id FROM node JOIN below ON node.parent=below.id WHERE pinned=0) "
          "UPDATE node SET kept=?2 WHERE id IN below")
      .bind(folder, kept)
      .run();
}

}  // namespace tulo::keptNodes
