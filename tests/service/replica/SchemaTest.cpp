#include "service/replica/Schema.h"

#include <gtest/gtest.h>

#include "service/replica/Journal.h"
#include "service/replica/Meta.h"
#include "service/replica/Replica.h"
#include "sqlite/Connection.h"
#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/Times.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

TEST(SchemaTest, ANewerFileIsRefused) {
  const TemporaryDirectory directory;
  { Replica replica(directory.path()); }
  {
    sqlite::Connection database(directory.file("replica.db"), sqlite::Connection::Mode::create);
    database.execute("PRAGMA user_version=" + std::to_string(schema::kVersion + 1));
  }
  EXPECT_THROW(Replica(directory.path()), sqlite::DatabaseError);
}

// The rows of an account as the first version of the service left it.
TEST(SchemaTest, AReplicaOfTheFirstVersionKeepsItsRows) {
  const TemporaryDirectory directory;
  {
    sqlite::Connection database(directory.file("replica.db"), sqlite::Connection::Mode::create);
    database.execute(
        "PRAGMA journal_mode=WAL;"
        "CREATE TABLE meta (key TEXT PRIMARY KEY, value) WITHOUT ROWID;"
        "INSERT INTO meta VALUES ('next_node', 16), ('next_content', 1), ('generation', 7);"
        "CREATE TABLE node (id INTEGER PRIMARY KEY, parent INTEGER, name BLOB NOT NULL, filename "
        "BLOB, kind INTEGER NOT NULL, identifier BLOB, content_version BLOB, metadata_version "
        "BLOB, size INTEGER NOT NULL DEFAULT 0, modified INTEGER NOT NULL DEFAULT 0, capabilities "
        "INTEGER NOT NULL DEFAULT 0, mode INTEGER NOT NULL DEFAULT 0, state INTEGER NOT NULL "
        "DEFAULT 0, content INTEGER NOT NULL DEFAULT 0, blocks INTEGER NOT NULL DEFAULT 0, pinned "
        "INTEGER NOT NULL DEFAULT 0, kept INTEGER NOT NULL DEFAULT 0, last_used INTEGER NOT NULL "
        "DEFAULT 0, error BLOB, listed INTEGER NOT NULL DEFAULT 0, digest BLOB, detached INTEGER);"
        "CREATE UNIQUE INDEX node_name ON node (parent, name);"
        "CREATE INDEX node_parent ON node (parent);"
        "CREATE UNIQUE INDEX node_identifier ON node (identifier) WHERE identifier IS NOT NULL;"
        "CREATE INDEX node_wanted ON node (id) WHERE kept = 1 AND kind = 2 AND state = 0;"
        "CREATE INDEX node_kept_folders ON node (id) WHERE kept = 1 AND kind = 1;"
        "CREATE INDEX node_cached ON node (last_used) WHERE state = 1 AND kept = 0;"
        "CREATE INDEX node_failed ON node (id) WHERE error IS NOT NULL;"
        "CREATE INDEX node_detached ON node (detached) WHERE detached IS NOT NULL;"
        "CREATE TABLE content (id INTEGER PRIMARY KEY, node INTEGER NOT NULL, blocks INTEGER NOT "
        "NULL DEFAULT 0, used INTEGER NOT NULL DEFAULT 0, durable INTEGER NOT NULL DEFAULT 0);"
        "CREATE INDEX content_node ON content (node);"
        "CREATE INDEX content_unused ON content (id) WHERE used = 0;"
        "CREATE INDEX content_volatile ON content (id) WHERE durable = 0;"
        "INSERT INTO node (id,parent,name,kind,identifier,size,modified,state,content,pinned) "
        "VALUES (20,1,x'61',2,x'693a31',5,1700000000,1,3,1);"
        "INSERT INTO content VALUES (3,20,8,1,1);"
        "PRAGMA user_version=1;");
  }
  Replica replica(directory.path());
  EXPECT_TRUE(replica.setAside().empty());
  const auto node = replica.read([](ReplicaReader& reader) { return reader.nodeFor("i:1"); });
  ASSERT_TRUE(node);
  EXPECT_EQ(node->id, NodeId(20));
  EXPECT_EQ(node->name, "a");
  EXPECT_EQ(node->size, 5);
  EXPECT_EQ(node->modified.whole, atSecond(1'700'000'000));
  EXPECT_EQ(node->content, ContentId(3));
  EXPECT_TRUE(node->pinned);
  EXPECT_EQ(replica.read([](ReplicaReader& reader) { return meta::integer(reader, "generation"); }),
            7);
  EXPECT_EQ(
      replica.read([](ReplicaReader& reader) { return askSql(reader, "PRAGMA user_version"); }),
      schema::kVersion);
  replica.write(Durability::durable, [&](ReplicaWriter& writer) {
    journal::put(writer, journal::begin(writer, *writer.node(NodeId(20)), at(1)));
  });
  EXPECT_TRUE(
      replica.read([](ReplicaReader& reader) { return journal::find(reader, NodeId(20)); }));
}

}  // namespace
}  // namespace tulo::test
