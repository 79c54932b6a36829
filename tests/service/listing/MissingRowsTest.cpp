#include "service/listing/MissingRows.h"

#include <memory>
#include <optional>

#include "service/replica/Recovery.h"
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

// A folder of the host's in which something lies that stays on this machine.
class LocalBelowTest : public MissingRowsTest {
 protected:
  LocalBelowTest() {
    extension->folder("f:1", "Photos");
    extension->folder("f:2", "Deep", "f:1");
    list();
    photos = idOf("f:1");
    list(photos);
    deep = idOf("f:2");
    list(deep);
  }

  void deleteThere() {
    for (const char* identifier : {"f:2", "f:1"})
      extension->remove(identifier);
    list();
  }

  NodeId recovered(const std::string& name) {
    const NodeId folder = named(kRecoveryFolder);
    return folder == kNoNode ? kNoNode : named(name, folder);
  }

  NodeId photos = kNoNode;
  NodeId deep = kNoNode;
};

TEST_F(LocalBelowTest, AFolderDoesNotComeBackForWhatStaysHere) {
  const NodeId kept = makeFile("notes.txt~", "mine", deep);
  makeFile(".directory", "[Desktop]", photos);
  deleteThere();
  EXPECT_EQ(named("Photos"), kNoNode);
  EXPECT_EQ(recovered("notes.txt~"), kept);
  EXPECT_EQ(contentsOf(kept), "mine");
  EXPECT_EQ(contentsOf(recovered(".directory")), "[Desktop]");
  pushAll();
  EXPECT_TRUE(sent().empty());
  // The kernel hears of both places.
  const auto told = delivered();
  EXPECT_TRUE(told.has(entryChanged(deep, "notes.txt~")));
  EXPECT_TRUE(told.has(entryChanged(named(kRecoveryFolder), "notes.txt~")));
  EXPECT_TRUE(told.has(entryChanged(kRootNode, kRecoveryFolder)));
}

TEST_F(LocalBelowTest, WhatStaysHereOutlivesThePurge) {
  const NodeId kept = makeFile("notes.txt~", "mine", deep);
  deleteThere();
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    runSql(writer, "UPDATE node SET detached=1 WHERE detached IS NOT NULL");
  });
  while (engine->contents().purgeStep()) {
  }
  EXPECT_FALSE(row(photos));
  EXPECT_EQ(contentsOf(kept), "mine");
}

TEST_F(LocalBelowTest, ALinkStaysHere) {
  ASSERT_EQ(engine->edits().makeLink(deep, "link", "/nowhere").error, 0);
  deleteThere();
  EXPECT_EQ(engine->edits().readLink(recovered("link")), "/nowhere");
}

TEST_F(LocalBelowTest, AFolderThatStaysHereGoesAlongAsAWhole) {
  const NodeId local = makeFolder("build~", deep);
  const NodeId inside = makeFile("a.o", "object", local);
  deleteThere();
  EXPECT_EQ(recovered("build~"), local);
  EXPECT_EQ(named("a.o", local), inside);
}

TEST_F(LocalBelowTest, AFolderDoesNotComeBackForAnotherName) {
  extension->file("i:1", "a.txt", "theirs", "f:2");
  list(deep);
  ASSERT_EQ(engine->edits().rename(deep, "a.txt", deep, "b.txt", 0), 0);
  extension->remove("i:1");
  deleteThere();
  pushAll();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(named("Photos"), kNoNode);
}

TEST_F(LocalBelowTest, OnlyTheFoldersOfWhatIsToBeSentComeBack) {
  makeFile("new.txt", "from here", photos);
  const NodeId local = makeFile("notes.txt~", "mine", deep);
  deleteThere();
  pushAll();
  EXPECT_EQ(hostContents("new.txt"), "from here");
  EXPECT_EQ(extension->named("Photos").size(), 1U);
  EXPECT_TRUE(extension->named("Deep").empty());
  EXPECT_EQ(recovered("notes.txt~"), local);
}

TEST_F(LocalBelowTest, WhatIsPutIntoTheRecoveredFilesGoesUp) {
  makeFile("notes.txt~", "mine", deep);
  deleteThere();
  const NodeId folder = named(kRecoveryFolder);
  ASSERT_NE(folder, kNoNode);
  makeFile("new.txt", "from here", folder);
  push();
  pushAll();
  EXPECT_EQ(hostContents("new.txt"), "from here");
  EXPECT_TRUE(extension->named("notes.txt~").empty());
}

// A folder of the host that is deleted there while a file below it is open for writing.
class DeletedFolderTest : public WritingFixture {
 protected:
  DeletedFolderTest() {
    extension->folder("f:1", "Docs");
    extension->folder("f:2", "Deep", "f:1");
    list();
    docs = idOf("f:1");
    list(docs);
    deep = idOf("f:2");
    extension->file("i:1", "a.txt", "base", "f:2");
    list(deep);
    id = idOf("i:1");
    readThrough(id);
    handle.emplace(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content,
                   std::nullopt);
    handle->setWrites();
    file = open(id);
    for (const char* identifier : {"i:1", "f:2", "f:1"})
      extension->remove(identifier);
    list();
  }

  void write() {
    EXPECT_EQ(file->write("mine", 4, 0), 4);
    EXPECT_EQ(engine->files().synchronize(id, false), 0);
  }
  void closeAll() {
    engine->files().catchUp();
    handle.reset();
    file.reset();
    close(id);
  }
  // What left the tree is removed by now.
  void purge() {
    engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
      runSql(writer, "UPDATE node SET detached=1 WHERE detached IS NOT NULL");
    });
    while (engine->contents().purgeStep()) {
    }
  }

  NodeId docs = kNoNode;
  NodeId deep = kNoNode;
  NodeId id = kNoNode;
  std::optional<OpenFile> handle;
  std::shared_ptr<WritableFile> file;
};

TEST_F(DeletedFolderTest, StaysAsLongAsSomethingInItMayStillBeWritten) {
  EXPECT_EQ(named("Docs"), docs);
  purge();
  write();
  EXPECT_EQ(counts().pending, 1);
  closeAll();
  list();
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "mine");
  EXPECT_EQ(hostContents("Docs"), "");
}

TEST_F(DeletedFolderTest, GoesOnceItIsClosedAsItWas) {
  closeAll();
  list();
  EXPECT_EQ(named("Docs"), kNoNode);
  purge();
  EXPECT_FALSE(row(id));
}

// It left the tree before the file was opened, and nobody looked since.
TEST_F(DeletedFolderTest, WhatIsWrittenBelowAFolderThatIsOutOfTheTreeEndsSomewhere) {
  engine->replica().write(Durability::eventual,
                          [&](ReplicaWriter& writer) { writer.detach(docs, secondsNow()); });
  purge();
  write();
  purge();
  for (int i = 0; i < 40; ++i)
    EXPECT_LE(push(), 3U) << "it is tried over and over";
  closeAll();
  purge();
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "mine");
}

TEST_F(DeletedFolderTest, WhatIsNotWrittenYetStaysBesideWhatIs) {
  const NodeId other = makeFile("b.txt", "new", docs);
  list();
  EXPECT_EQ(named("b.txt", docs), other);
  EXPECT_EQ(named("Deep", docs), deep);
  write();
  closeAll();
  pushAll();
  EXPECT_EQ(hostContents("b.txt"), "new");
  EXPECT_EQ(hostContents("a.txt"), "mine");
}

}  // namespace
}  // namespace tulo::test
