#include "service/replica/Recovery.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "platform/FileProvider.h"
#include "service/base/FaultPoints.h"
#include "service/replica/Journal.h"

namespace tulo {

namespace {

constexpr std::uint64_t kAllCapabilities = 47;

NodeId insertUnsent(ReplicaWriter& writer, Node node) {
  node.capabilities = kAllCapabilities;
  node.filename = node.name;
  node.modified = std::time(nullptr);
  node.id = writer.insert(node);
  Change change = journal::begin(writer, node, 0);
  change.contents = node.kind == NodeKind::file;
  journal::put(writer.connection(), change);
  return node.id;
}

NodeId recoveryFolder(ReplicaWriter& writer) {
  for (unsigned i = 1;; ++i) {
    const std::string name =
        i == 1 ? kRecoveryFolder : kRecoveryFolder + (" (" + std::to_string(i) + ")");
    const std::optional<NodeId> known = writer.childNamed(kRootNode, name);
    if (known && writer.node(*known)->kind == NodeKind::folder) return *known;
    if (known) continue;
    Node folder;
    folder.kind = NodeKind::folder;
    folder.parent = kRootNode;
    folder.name = name;
    const NodeId id = insertUnsent(writer, folder);
    writer.setListed(id, 1, "");
    return id;
  }
}

std::string freeName(ReplicaWriter& writer, NodeId folder, const std::string& name) {
  std::string candidate = name;
  for (unsigned i = 2; writer.childNamed(folder, candidate); ++i) {
    const std::string mark = " (" + std::to_string(i) + ")";
    const std::filesystem::path path(name);
    candidate = path.stem().string() + mark + path.extension().string();
  }
  return candidate;
}

std::vector<NodeId> changedBelow(sqlite::Connection& database, NodeId node) {
  sqlite::Statement& statement =
      database
          .cached(
              "WITH RECURSIVE below(id) AS (SELECT ?1 UNION ALL SELECT node.id FROM node JOIN "
              "below ON node.parent=below.id) SELECT id FROM below JOIN node USING (id) JOIN "
              "pending ON pending.node=id WHERE state=2 AND pending.deleted=0")
          .bind(node);
  sqlite::StatementUse use(statement);
  std::vector<NodeId> result;
  while (statement.step())
    result.push_back(static_cast<NodeId>(statement.integer(0)));
  return result;
}

std::uint64_t numberOf(const std::string& path) {
  return std::strtoull(std::filesystem::path(path).filename().c_str(), nullptr, 10);
}

}  // namespace

void rescueChanged(ReplicaWriter& writer, NodeId id) {
  sqlite::Connection& database = writer.connection();
  for (NodeId changed : changedBelow(database, id)) {
    std::optional<Node> node = writer.node(changed);
    const NodeId folder = recoveryFolder(writer);
    node->parent = folder;
    node->name = freeName(writer, folder, node->name);
    node->filename = node->name;
    writer.update(*node);
    database.cached("UPDATE node SET identifier=NULL WHERE id=?").bind(changed).run();
    Change change = journal::begin(writer, *node, 0);
    change.contents = true;
    change.baseParent.clear();
    change.baseFilename.clear();
    change.baseVersion.clear();
    change.sent = false;
    journal::put(database, change);
  }
}

std::size_t recoverContents(Replica& replica, ContentStore& store) {
  const std::vector<ContentStore::Named> files = store.named();
  const ContentId highest = store.highestNumber();
  replica.write(Durability::durable, [&](ReplicaWriter& writer) {
    writer.skipContents(ContentId(highest.number() + 1));
    if (files.empty()) return;
    const NodeId folder = recoveryFolder(writer);
    for (const ContentStore::Named& file : files) {
      struct stat status = {};
      if (::stat(file.path.c_str(), &status) != 0) continue;
      Node node;
      node.parent = folder;
      node.name = freeName(writer, folder, file.name);
      node.size = status.st_size;
      const NodeId id = insertUnsent(writer, node);
      const std::uint64_t content = numberOf(file.path);
      sqlite::Connection& database = writer.connection();
      database.cached("INSERT OR REPLACE INTO content (id,node,used,blocks) VALUES (?,?,1,?)")
          .bind(content, id, static_cast<std::int64_t>(status.st_blocks))
          .run();
      database.cached("UPDATE node SET state=2,content=?,size=?,blocks=? WHERE id=?")
          .bind(content, node.size, static_cast<std::int64_t>(status.st_blocks), id)
          .run();
    }
    faultPoint("recovery.inserted");
  });
  return files.size();
}

}  // namespace tulo
