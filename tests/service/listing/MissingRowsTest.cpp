#include "service/listing/MissingRows.h"

#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class MissingRowsTest : public WritingFixture {};

TEST_F(MissingRowsTest, ADeletedItemIsToldAsADeletion) {
  extension->file("i:1", "a.txt", "hello");
  refresh();
  const NodeId id = idOf("i:1");
  extension->remove("i:1");
  commit();
  refresh();
  EXPECT_TRUE(names().empty());
  EXPECT_TRUE(delivered().has(entryDeleted(kRootNode, id, "a.txt")));
}

TEST_F(MissingRowsTest, WhatIsInADeletedFolderGoesWithIt) {
  extension->folder("f:1", "Docs");
  extension->folder("f:2", "Deep", "f:1");
  extension->file("i:1", "a.txt", "hello", "f:2");
  refresh();
  refresh(idOf("f:1"));
  refresh(idOf("f:2"));
  EXPECT_EQ(readThrough(idOf("i:1")), "hello");
  EXPECT_GT(engine->store().room().used(), 0);
  for (const char* identifier : {"i:1", "f:2", "f:1"})
    extension->remove(identifier);
  commit();
  refresh();
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    runSql(writer, "UPDATE node SET detached=1 WHERE detached IS NOT NULL");
  });
  while (engine->contents().purgeStep()) {
  }
  EXPECT_FALSE(node("i:1"));
  EXPECT_EQ(engine->store().room().used(), 0);
}

TEST_F(MissingRowsTest, AFolderInWhichSomethingNewWaitsIsMadeAgainForIt) {
  extension->folder("f:1", "Docs");
  extension->folder("f:2", "Deep", "f:1");
  extension->file("i:1", "a.txt", "hello", "f:1");
  list();
  const NodeId docs = idOf("f:1");
  list(docs);
  const NodeId deep = idOf("f:2");
  list(deep);
  const NodeId made = makeFile("new", "from here", deep);
  for (const char* identifier : {"i:1", "f:2", "f:1"})
    extension->remove(identifier);
  list();
  EXPECT_EQ(named("Docs"), docs);
  EXPECT_EQ(names(docs), (std::map<std::string, NodeId>{{"Deep", deep}}));
  EXPECT_EQ(names(deep), (std::map<std::string, NodeId>{{"new", made}}));
  EXPECT_EQ(row(docs)->identifier, "");
  EXPECT_EQ(row(deep)->identifier, "");
  pushAll();
  EXPECT_EQ(hostContents("new"), "from here");
}

TEST_F(MissingRowsTest, AFileThatWasChangedHereStaysThoughTheHostDeletedIt) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  write(id, "from here");
  extension->remove("i:1");
  list();
  EXPECT_EQ(named("a.txt"), id);
  EXPECT_EQ(row(kRootNode)->digest, "");
}

}  // namespace
}  // namespace tulo::test
