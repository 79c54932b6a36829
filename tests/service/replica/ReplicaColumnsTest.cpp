#include "service/replica/ReplicaColumns.h"

#include "service/replica/KeptNodes.h"
#include "service/replica/NodeContents.h"
#include "service/replica/Sql.h"
#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class ReplicaColumnsTest : public ReplicaFixture {
 protected:
  // Every column has a value that no other one has.
  Node full() {
    Node node;
    node.kind = NodeKind::folder;
    node.parent = kRootNode;
    node.name = "shown";
    node.filename = "as the host has it";
    node.identifier = "i:1";
    node.contentVersion = "c";
    node.metadataVersion = "m";
    node.size = 3;
    node.modified = {WallSeconds(seconds(1'700'000'000)), nanoseconds(5)};
    node.capabilities = 6;
    node.mode = kModeSet | 0640;
    write([&](ReplicaWriter& writer) {
      node.id = writer.insert(node);
      nodeContents::adopt(writer, node.id, ContentId(9), 8);
      keptNodes::setPinned(writer, node.id, true);
      writer.setLastUsed(node.id, WallSeconds(seconds(11)));
      writer.setError(node.id, "error");
      writer.setListed(node.id, 12, "digest");
    });
    return node;
  }
};

TEST_F(ReplicaColumnsTest, EachColumnComesBackAsWhatItWas) {
  const Node node = full();
  const std::optional<Node> found = row(node.id);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->kind, NodeKind::folder);
  EXPECT_EQ(found->parent, kRootNode);
  EXPECT_EQ(found->name, "shown");
  EXPECT_EQ(found->filename, "as the host has it");
  EXPECT_EQ(found->identifier, "i:1");
  EXPECT_EQ(found->contentVersion, "c");
  EXPECT_EQ(found->metadataVersion, "m");
  EXPECT_EQ(found->size, 3);
  EXPECT_EQ(found->modified, node.modified);
  EXPECT_EQ(found->capabilities, 6U);
  EXPECT_EQ(found->mode, kModeSet | 0640);
  EXPECT_EQ(found->state, ContentState::downloaded);
  EXPECT_EQ(found->content, ContentId(9));
  EXPECT_EQ(found->blocks, 8);
  EXPECT_TRUE(found->pinned);
  EXPECT_FALSE(found->kept);
  EXPECT_EQ(found->lastUsed, WallSeconds(seconds(11)));
  EXPECT_EQ(found->error, "error");
  EXPECT_EQ(found->listed, 12U);
  EXPECT_EQ(found->digest, "digest");
}

TEST_F(ReplicaColumnsTest, AnEntryIsTheBeginOfItsRow) {
  const Node node = full();
  read([&](ReplicaReader& reader) {
    sqlite::Statement statement = sqlOf(reader).prepare(columns::selectEntry() + " WHERE id=?");
    ASSERT_TRUE(statement.bind(node.id).step());
    const Entry entry = columns::entryFrom(statement);
    EXPECT_EQ(entry.id, node.id);
    EXPECT_EQ(entry.modified, node.modified);
    EXPECT_EQ(entry.content, ContentId(9));
    EXPECT_EQ(statement.text(columns::kEntryName), "shown");
  });
}

TEST_F(ReplicaColumnsTest, ANameThatTheHostHasTooIsWrittenOnce) {
  const NodeId file = add("same", "i:1");
  EXPECT_EQ(row(file)->filename, "same");
  read([&](ReplicaReader& reader) {
    EXPECT_EQ(sqlOf(reader).integer("SELECT count(*) FROM node WHERE name=x'73616d65' AND "
                                    "filename IS NULL"),
              1);
  });
}

TEST_F(ReplicaColumnsTest, NumbersAreReadAndTheStatementIsReady) {
  const NodeId one = add("one", "i:1");
  const NodeId two = add("two", "i:2");
  read([&](ReplicaReader& reader) {
    sqlite::Statement statement =
        sqlOf(reader).prepare("SELECT id FROM node WHERE parent=? ORDER BY id");
    for (int i = 0; i < 2; ++i)
      EXPECT_EQ(columns::idsFrom(statement.bind(kRootNode)), (std::vector<NodeId>{one, two}));
  });
}

}  // namespace
}  // namespace tulo::test
