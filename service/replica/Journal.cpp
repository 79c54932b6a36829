#include "service/replica/Journal.h"

#include "service/replica/Numbers.h"
#include "service/replica/Sql.h"

namespace tulo::journal {

namespace {

constexpr const char* kColumns =
    "SELECT pending.node,sequence,deleted,contents,base_parent,base_filename,base_version,due,"
    "attempts,sent,sent_content,attention,held,reason,sent_parent,sent_filename FROM pending";

// What `sent` says of a request of which it is not known what became of it.
constexpr std::int64_t kUnanswered = 1;
constexpr std::int64_t kEnded = 2;

std::int64_t sentColumn(const Request& request) {
  if (!request.isOpen()) return 0;
  return request.isUnanswered() ? kUnanswered : kEnded;
}

Change changeFrom(const sqlite::Statement& row) {
  const auto text = [&](int column) { return std::string(row.text(column)); };
  Base base{{text(4), text(5)}, text(6)};
  Request request(row.integer(9) != 0, row.integer(9) == kUnanswered, ContentId(row.integer(10)),
                  {text(14), text(15)});
  Standing standing(WallTime(milliseconds(row.integer(7))), row.integer(8), row.integer(11) != 0,
                    row.integer(12) != 0, text(13));
  return {NodeId(row.integer(0)), row.integer(1),     row.integer(2) != 0, row.integer(3) != 0,
          std::move(base),        std::move(request), std::move(standing)};
}

std::vector<Change> rows(sqlite::Statement& statement) {
  sqlite::StatementUse use(statement);
  std::vector<Change> result;
  while (statement.step())
    result.push_back(changeFrom(statement));
  return result;
}

sqlite::Statement& query(ReplicaReader& reader, const std::string& condition) {
  return sqlOf(reader).cached(kColumns + condition);
}

// What a node is that nobody changed here yet.
Base baseOf(ReplicaWriter& writer, const Node& node) {
  if (node.identifier.empty()) return {};
  const std::optional<Node> parent = writer.node(node.parent);
  return {{parent ? parent->identifier : std::string(), node.filename}, node.contentVersion};
}

bool exists(sqlite::Statement& statement) {
  sqlite::StatementUse use(statement);
  return statement.step();
}

}  // namespace

std::optional<Change> find(ReplicaReader& reader, NodeId node) {
  const auto found = rows(query(reader, " WHERE pending.node=?").bind(node));
  return found.empty() ? std::nullopt : std::optional<Change>(found.front());
}

void put(ReplicaWriter& writer, const Change& change) {
  sqlOf(writer)
      .cached(
          "INSERT OR REPLACE INTO pending (node,sequence,deleted,contents,base_parent,"
          "base_filename,base_version,due,attempts,sent,sent_content,attention,held,reason,"
          "sent_parent,sent_filename) VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)")
      .bind(change.node(), change.sequence(), change.isDeleted(), change.hasContents(),
            change.base().place.parent, change.base().place.filename, change.base().version,
            change.standing.due(), change.standing.attempts(), sentColumn(change.request),
            change.request.contents(), change.standing.isRefused(), change.standing.isHeld(),
            change.standing.reason(), change.request.place().parent,
            change.request.place().filename)
      .run();
}

void erase(ReplicaWriter& writer, NodeId node) {
  sqlOf(writer).cached("DELETE FROM pending WHERE node=?").bind(node).run();
}

Change fresh(ReplicaWriter& writer, NodeId node, WallTime due) {
  return {node, writer.numbers().sequence(), {}, due};
}

Change begin(ReplicaWriter& writer, const Node& node, WallTime due) {
  std::optional<Change> found = find(writer, node.id);
  if (!found) return {node.id, writer.numbers().sequence(), baseOf(writer, node), due};
  found->changedAgain(writer.numbers().sequence(), due);
  return *found;
}

bool again(ReplicaWriter& writer, NodeId node, WallTime due) {
  sqlite::Connection& database = sqlOf(writer);
  database
      .cached("UPDATE pending SET sequence=?,attempts=0,attention=0,held=0,reason=x'' WHERE node=?")
      .bind(writer.numbers().sequence(), node)
      .run();
  if (database.changes() == 0) return false;
  postpone(writer, node, due);
  return true;
}

void postpone(ReplicaWriter& writer, NodeId node, WallTime due) {
  sqlOf(writer).cached("UPDATE pending SET due=?1 WHERE node=?2 AND due<>?1").bind(due, node).run();
}

std::vector<Due> due(ReplicaReader& reader, WallTime now, WallTime afterDue, NodeId afterNode,
                     std::int64_t limit) {
  sqlite::Statement& statement =
      sqlOf(reader)
          .cached(
              "SELECT due,node FROM pending INDEXED BY pending_due WHERE attention=0 AND held=0 "
              "AND due<=?1 AND (due,node)>(?2,?3) ORDER BY due,node LIMIT ?4")
          .bind(now, afterDue, afterNode, limit);
  std::vector<Due> result;
  for (sqlite::StatementUse use(statement); statement.step();)
    result.push_back(
        {WallTime(milliseconds(statement.integer(0))), static_cast<NodeId>(statement.integer(1))});
  return result;
}

std::vector<Change> all(ReplicaReader& reader, std::int64_t limit) {
  return rows(query(reader, " ORDER BY attention DESC, sequence LIMIT ?").bind(limit));
}

std::vector<Change> basedOn(ReplicaReader& reader, const std::string& parent,
                            const std::string& filename) {
  return rows(query(reader, " WHERE base_parent=? AND base_filename=? AND base_parent<>x''")
                  .bind(parent, filename));
}

std::vector<Change> basedIn(ReplicaReader& reader, const std::string& parent) {
  return rows(query(reader, " WHERE base_parent=? AND base_parent<>x''").bind(parent));
}

bool anyBasedIn(ReplicaReader& reader, const std::string& parent, NodeId except) {
  return exists(
      sqlOf(reader)
          .cached(
              "SELECT 1 FROM pending WHERE base_parent=? AND base_parent<>x'' AND node<>? LIMIT 1")
          .bind(parent, except));
}

std::vector<Change> sentTo(ReplicaReader& reader, const std::string& parent,
                           const std::string& filename) {
  return rows(
      query(reader, " WHERE sent<>0 AND sent_parent=? AND sent_filename=?").bind(parent, filename));
}

std::vector<Change> sentInto(ReplicaReader& reader, const std::string& parent) {
  return rows(query(reader, " WHERE sent<>0 AND sent_parent=?").bind(parent));
}

std::vector<Change> inFolder(ReplicaReader& reader, NodeId folder) {
  return rows(query(reader, " JOIN node ON node.id=pending.node WHERE node.parent=?").bind(folder));
}

bool isEmpty(ReplicaReader& reader) {
  return !exists(sqlOf(reader).cached("SELECT 1 FROM pending LIMIT 1").bind());
}

std::optional<WallTime> nextDue(ReplicaReader& reader, WallTime now) {
  sqlite::Statement& statement = sqlOf(reader).cached(
      "SELECT min(due) FROM pending INDEXED BY pending_due WHERE attention=0 AND held=0 AND due>?");
  statement.bind(now);
  sqlite::StatementUse use(statement);
  if (!statement.step() || statement.isNull(0)) return std::nullopt;
  return WallTime(milliseconds(statement.integer(0)));
}

std::optional<WallTime> latestDue(ReplicaReader& reader) {
  sqlite::Statement& statement = sqlOf(reader).cached(
      "SELECT max(due) FROM pending INDEXED BY pending_due WHERE attention=0 AND held=0");
  statement.bind();
  sqlite::StatementUse use(statement);
  if (!statement.step() || statement.isNull(0)) return std::nullopt;
  return WallTime(milliseconds(statement.integer(0)));
}

void capDue(ReplicaWriter& writer, WallTime latest, WallTime now) {
  sqlOf(writer).cached("UPDATE pending SET due=?2 WHERE due>?1").bind(latest, now).run();
}

Counts counts(ReplicaReader& reader) {
  Counts result;
  sqlite::Statement& statement =
      sqlOf(reader).cached("SELECT count(*),coalesce(sum(attention),0) FROM pending WHERE held=0");
  statement.bind();
  sqlite::StatementUse use(statement);
  if (statement.step()) {
    result.attention = statement.integer(1);
    result.pending = statement.integer(0) - result.attention;
  }
  return result;
}

void hurryAll(ReplicaWriter& writer, WallTime now) {
  sqlOf(writer)
      .cached("UPDATE pending SET due=min(due,?) WHERE attention=0 AND held=0")
      .bind(now)
      .run();
}

void folderBecame(ReplicaWriter& writer, const std::string& former, const std::string& identifier) {
  sqlite::Connection& database = sqlOf(writer);
  database.cached("UPDATE pending SET base_parent=? WHERE base_parent=?")
      .bind(identifier, former)
      .run();
  database.cached("UPDATE pending SET sent_parent=? WHERE sent_parent=?")
      .bind(identifier, former)
      .run();
}

void retry(ReplicaWriter& writer, WallTime now, bool refused) {
  sqlOf(writer)
      .cached("UPDATE pending SET due=min(due,?1) WHERE attempts>0 AND attention=0")
      .bind(now)
      .run();
  if (!refused) return;
  sqlOf(writer)
      .cached("UPDATE node SET error=NULL WHERE id IN (SELECT node FROM pending WHERE attention=1)")
      .bind()
      .run();
  sqlOf(writer)
      .cached("UPDATE pending SET attention=0,attempts=0,due=? WHERE attention=1")
      .bind(now)
      .run();
}

}  // namespace tulo::journal
