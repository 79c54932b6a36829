#include "service/replica/Links.h"

#include "service/replica/Sql.h"

namespace tulo::links {

void add(ReplicaWriter& writer, NodeId link, std::string_view target) {
  sqlOf(writer).cached("INSERT INTO link VALUES (?,?)").bind(link, target).run();
}

std::optional<std::string> target(ReplicaReader& reader, NodeId link) {
  sqlite::Statement& statement =
      sqlOf(reader).cached("SELECT target FROM link WHERE node=?").bind(link);
  sqlite::StatementUse use(statement);
  if (!statement.step()) return std::nullopt;
  return std::string(statement.text(0));
}

}  // namespace tulo::links
