#include "service/replica/ReplicaColumns.h"

namespace tulo::columns {

namespace {

constexpr const char* kEntryColumns =
    "id,kind,size,modified,capabilities,mode,state,blocks,name,content,nanoseconds";

}  // namespace

std::string selectEntry() {
  return std::string("SELECT ") + kEntryColumns + " FROM node";
}

std::string selectNode() {
  return std::string("SELECT ") + kEntryColumns +
         ",parent,filename,identifier,content_version,metadata_version,pinned,kept,"
         "last_used,error,listed,digest FROM node";
}

Entry entryFrom(const sqlite::Statement& row) {
  Entry entry;
  entry.id = static_cast<NodeId>(row.integer(0));
  entry.kind = static_cast<NodeKind>(row.integer(1));
  entry.size = row.integer(2);
  entry.modified = {WallSeconds(seconds(row.integer(3))), nanoseconds(row.integer(10))};
  entry.capabilities = static_cast<std::uint64_t>(row.integer(4));
  entry.mode = static_cast<int>(row.integer(5));
  entry.state = static_cast<ContentState>(row.integer(6));
  entry.blocks = row.integer(7);
  entry.content = static_cast<ContentId>(row.integer(9));
  return entry;
}

Node nodeFrom(const sqlite::Statement& row) {
  Node node;
  static_cast<Entry&>(node) = entryFrom(row);
  node.name = row.text(8);
  node.parent = static_cast<NodeId>(row.integer(11));
  node.filename = row.isNull(12) ? node.name : std::string(row.text(12));
  node.identifier = row.text(13);
  node.contentVersion = row.text(14);
  node.metadataVersion = row.text(15);
  node.pinned = row.integer(16) != 0;
  node.kept = row.integer(17) != 0;
  node.lastUsed = WallSeconds(seconds(row.integer(18)));
  node.error = row.text(19);
  node.listed = static_cast<std::uint64_t>(row.integer(20));
  node.digest = row.text(21);
  return node;
}

std::vector<NodeId> idsFrom(sqlite::Statement& statement) {
  sqlite::StatementUse use(statement);
  std::vector<NodeId> result;
  while (statement.step())
    result.push_back(static_cast<NodeId>(statement.integer(0)));
  return result;
}

}  // namespace tulo::columns
