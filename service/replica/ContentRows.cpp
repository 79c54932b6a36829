#include "service/replica/ContentRows.h"

#include "service/replica/Numbers.h"
#include "service/replica/Sql.h"

namespace tulo::contentRows {

namespace {

std::vector<ContentId> numbers(sqlite::Statement& statement) {
  sqlite::StatementUse use(statement);
  std::vector<ContentId> result;
  while (statement.step())
    result.emplace_back(static_cast<std::uint64_t>(statement.integer(0)));
  return result;
}

std::int64_t blocksOf(ReplicaReader& reader, ContentId content) {
  sqlite::Statement& statement =
      sqlOf(reader).cached("SELECT blocks FROM content WHERE id=?").bind(content);
  sqlite::StatementUse use(statement);
  return statement.step() ? statement.integer(0) : 0;
}

}  // namespace

ContentId next(ReplicaWriter& writer) {
  return writer.numbers().content();
}

void add(ReplicaWriter& writer, ContentId content, NodeId node, bool used) {
  sqlOf(writer)
      .cached("INSERT INTO content (id,node,used) VALUES (?,?,?)")
      .bind(content, node, used)
      .run();
}

ContentId reserve(ReplicaWriter& writer, NodeId node) {
  const ContentId content = next(writer);
  add(writer, content, node, false);
  return content;
}

void skip(ReplicaWriter& writer, ContentId first) {
  writer.numbers().skipContents(first);
}

void use(ReplicaWriter& writer, ContentId content) {
  sqlOf(writer).cached("UPDATE content SET used=1 WHERE id=?").bind(content).run();
}

void disuse(ReplicaWriter& writer, ContentId content) {
  sqlOf(writer).cached("UPDATE content SET used=0 WHERE id=?").bind(content).run();
}

std::optional<std::int64_t> remove(ReplicaWriter& writer, ContentId content) {
  sqlite::Statement& statement =
      sqlOf(writer).cached("DELETE FROM content WHERE id=? AND used=0 RETURNING blocks");
  sqlite::StatementUse use(statement);
  std::optional<std::int64_t> blocks;
  statement.bind(content);
  while (statement.step())
    blocks = statement.integer(0);
  return blocks;
}

std::vector<ContentId> unused(ReplicaReader& reader, ContentId after, std::int64_t limit) {
  return numbers(sqlOf(reader)
                     .cached("SELECT id FROM content WHERE used=0 AND id>? ORDER BY id LIMIT ?")
                     .bind(after, limit));
}

bool isDurable(ReplicaReader& reader, ContentId content) {
  sqlite::Statement& statement =
      sqlOf(reader).cached("SELECT durable FROM content WHERE id=?").bind(content);
  sqlite::StatementUse use(statement);
  return statement.step() && statement.integer(0) != 0;
}

void setDurable(ReplicaWriter& writer, ContentId content) {
  sqlOf(writer).cached("UPDATE content SET durable=1 WHERE id=?").bind(content).run();
}

void clearDurable(ReplicaWriter& writer, ContentId content) {
  sqlOf(writer).cached("UPDATE content SET durable=0 WHERE id=?").bind(content).run();
}

std::vector<ContentId> notDurable(ReplicaReader& reader, std::int64_t limit) {
  return numbers(sqlOf(reader)
                     .cached("SELECT id FROM content WHERE durable=0 AND used=1 AND id>? LIMIT ?")
                     .bind(0, limit));
}

std::int64_t setWritten(ReplicaWriter& writer, ContentId content, std::int64_t blocks) {
  const std::int64_t before = blocksOf(writer, content);
  sqlOf(writer)
      .cached(
          "UPDATE content SET blocks=?1,durable=0 WHERE id=?2 AND NOT (blocks=?1 AND durable=0)")
      .bind(blocks, content)
      .run();
  return blocks - before;
}

std::int64_t blocks(ReplicaReader& reader) {
  return sqlOf(reader).integer("SELECT coalesce(sum(blocks),0) FROM content");
}

}  // namespace tulo::contentRows
