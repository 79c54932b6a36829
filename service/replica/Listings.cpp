#include "service/replica/Listings.h"

#include "service/replica/Sql.h"

namespace tulo::listings {

void forget(ReplicaWriter& writer, NodeId folder) {
  sqlOf(writer)
      .cached("UPDATE node SET digest=NULL WHERE id=? AND digest IS NOT NULL")
      .bind(folder)
      .run();
}

void forget(ReplicaWriter& writer, const std::string& identifier) {
  sqlOf(writer)
      .cached("UPDATE node SET digest=NULL WHERE identifier=? AND digest IS NOT NULL")
      .bind(identifier)
      .run();
}

}  // namespace tulo::listings
