#include "service/listing/Rebinding.h"

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

// An account that was set up again: the same files under other identifiers.
class RebindingTest : public UploadFixture {
 protected:
  RebindingTest() {
    extension->folder("f:1", "Docs");
    extension->file("i:deep", "deep.txt", "deep", "f:1");
    extension->file("i:1", "a.txt", "hello");
    list();
    list(idOf("f:1"));
  }

  static std::string renewed(const std::string& identifier) {
    const bool top = identifier == root();
    return top ? identifier : identifier + "'";
  }

  // Gives everything that the host has another identifier.
  void setUpAgain() {
    for (const char* identifier : {"f:1", "i:deep", "i:1", "i:2"}) {
      std::optional<ScriptedItem> item = extension->find(identifier);
      if (!item) continue;
      extension->remove(identifier);
      item->identifier = renewed(identifier);
      item->parent = renewed(item->parent);
      item->version = 1;
      extension->put(*item);
    }
  }
};

TEST_F(RebindingTest, WhatHasTheSameNameGoesOnUnderItsNumberWithItsContents) {
  const NodeId file = idOf("i:1");
  const NodeId folder = idOf("f:1");
  readThrough(file);
  ASSERT_EQ(engine->pins().setPinned(file, true), 0);
  setUpAgain();
  list();
  EXPECT_EQ(idOf("i:1'"), file);
  EXPECT_EQ(idOf("f:1'"), folder);
  EXPECT_TRUE(row(file)->pinned);
  EXPECT_EQ(row(file)->state, ContentState::downloaded);
  EXPECT_EQ(names().size(), 2U);
}

TEST_F(RebindingTest, AFolderThatIsAnotherAtTheHostIsListedAnew) {
  const NodeId folder = idOf("f:1");
  const NodeId deep = idOf("i:deep");
  setUpAgain();
  list();
  while (engine->sync().sweepStep()) {
  }
  EXPECT_EQ(idOf("i:deep'"), deep);
  EXPECT_EQ(row(deep)->parent, folder);
}

TEST_F(RebindingTest, ContentsThatMayBeOthersAreNotTakenForThoseThatAreHere) {
  const NodeId file = idOf("i:1");
  readThrough(file);
  setUpAgain();
  // Of the same version and size as before.
  extension->change("i:1'", [](ScriptedItem& item) {
    item.contents = "HELLO";
    item.modified += 5;
  });
  list();
  EXPECT_EQ(idOf("i:1'"), file);
  EXPECT_EQ(row(file)->state, ContentState::dataless);
  EXPECT_EQ(readThrough(file), "HELLO");
}

TEST_F(RebindingTest, AFileInPlaceOfAFolderIsNotTheSame) {
  const NodeId folder = idOf("f:1");
  extension->remove("f:1");
  extension->remove("i:deep");
  extension->file("i:9", "Docs", "a file");
  list();
  EXPECT_NE(idOf("i:9"), folder);
}

TEST_F(RebindingTest, AnEditStandsBesideTheFileOfTheSameName) {
  const NodeId file = idOf("i:1");
  write(file, "edited");
  setUpAgain();
  list();
  pushAll();
  list();
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_EQ(names().size(), 3U);
  EXPECT_EQ(contentsOf(file), "edited");
  EXPECT_NE(row(file)->name.find("conflicted copy"), std::string::npos);
  EXPECT_FALSE(row(file)->identifier.empty());
}

TEST_F(RebindingTest, AnEditThatTheFileHasAlreadyIsNoConflict) {
  write(idOf("i:1"), "edited");
  extension->edit("i:1", "edited");
  setUpAgain();
  list();
  pushAll();
  list();
  EXPECT_EQ(names().size(), 2U);
  EXPECT_EQ(hostContents("a.txt"), "edited");
}

TEST_F(RebindingTest, ARenameAndADeletionAreMeantForTheFileAsItWas) {
  for (const bool changed : {false, true}) {
    extension->file("i:1", "a.txt", "hello");
    extension->file("i:2", "b.txt", "there");
    // Versions are counted anew.
    extension->edit("i:1", "hello");
    extension->edit("i:2", "there");
    list();
    ASSERT_EQ(rename("a.txt", "A.txt"), 0);
    ASSERT_EQ(engine->edits().removeFile(kRootNode, "b.txt"), 0);
    setUpAgain();
    if (changed) {
      extension->edit("i:1'", "another");
      extension->edit("i:2'", "another");
    }
    list();
    pushAll();
    list();
    EXPECT_EQ(extension->find("i:1'")->name, changed ? "a.txt" : "A.txt");
    EXPECT_EQ(extension->find("i:2'").has_value(), changed);
    EXPECT_EQ(names().count("b.txt"), changed ? 1U : 0U);
    for (const char* identifier : {"i:1'", "i:2'"})
      extension->remove(identifier);
    list();
  }
}

TEST_F(RebindingTest, AFolderThatIsGoneForAMomentIsNotMadeTwice) {
  const NodeId folder = idOf("f:1");
  makeFile("new.txt", "new", folder);
  const ScriptedItem docs = *extension->find("f:1");
  extension->remove("f:1");
  list();
  EXPECT_TRUE(row(folder)->identifier.empty());
  extension->put(docs);
  list();
  EXPECT_EQ(idOf("f:1"), folder);
  pushAll();
  EXPECT_EQ(extension->named("Docs").size(), 1U);
  EXPECT_EQ(extension->named("new.txt").at(0).parent, "f:1");
  while (engine->sync().sweepStep()) {
  }
  EXPECT_EQ(names(folder).size(), 2U);
}

TEST_F(RebindingTest, AFileThatIsBeingMadeHereIsNotTakenForOneThatWasDeletedHere) {
  ASSERT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  extension->remove("i:1");
  makeFile("b.txt", "x");
  push();
  const NodeId fresh = makeFile("a.txt", "a new one");
  clock += kQuiet;
  extension->scriptMutation({.before = [this] { list(); }});
  pushAll();
  list();
  EXPECT_EQ(hostContents("a.txt"), "a new one");
  EXPECT_EQ(named("a.txt"), fresh);
}

// A program that deletes a file and makes it again within the second in which the former one was
// written: name, size, time and version are the same, the bytes are not.
class MadeAgainTest : public UploadFixture {
 protected:
  MadeAgainTest() {
    put("i:1", "hello");
    list();
  }

  void put(const std::string& identifier, const std::string& contents) {
    extension->put({identifier, root(), "a.txt", false, contents, 1, written});
  }

  void makeAgain(const std::string& contents) {
    extension->remove("i:1");
    put("i:2", contents);
    list();
  }

  bool hostHas(const std::string& contents) {
    for (const char* identifier : {"i:1", "i:2"}) {
      const auto item = extension->find(identifier);
      if (item && item->contents == contents) return true;
    }
    return false;
  }

  const std::int64_t written = secondsNow().time_since_epoch().count();
};

TEST_F(MadeAgainTest, ANewFileHereStandsBesideIt) {
  for (const bool read : {true, false}) {
    if (read) readThrough(idOf("i:1"));
    ASSERT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
    const NodeId fresh = makeFile("a.txt", "fresh");
    makeAgain("HELLO");
    pushAll();
    list();
    EXPECT_TRUE(hostHas("HELLO"));
    EXPECT_EQ(contentsOf(fresh), "fresh");
    EXPECT_EQ(names().size(), 2U);
    for (const auto& [name, id] : names())
      ASSERT_EQ(engine->edits().removeFile(kRootNode, name), 0);
    pushAll();
    put("i:1", "hello");
    list();
  }
}

TEST_F(MadeAgainTest, ItIsNotDeletedInPlaceOfTheFormerOne) {
  readThrough(idOf("i:1"));
  ASSERT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  makeAgain("HELLO");
  pushAll();
  list();
  EXPECT_TRUE(hostHas("HELLO"));
  EXPECT_EQ(readThrough(named("a.txt")), "HELLO");
}

TEST_F(MadeAgainTest, OfTheSameBytesItIsDeletedAsTheFormerOneWas) {
  readThrough(idOf("i:1"));
  ASSERT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  makeAgain("hello");
  pushAll();
  list();
  EXPECT_FALSE(hostHas("hello"));
  EXPECT_TRUE(names().empty());
}

TEST_F(MadeAgainTest, WhatNobodyHasReadIsNotDeletedForIt) {
  ASSERT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  makeAgain("HELLO");
  pushAll();
  list();
  EXPECT_TRUE(hostHas("HELLO"));
}

TEST_F(MadeAgainTest, ItsContentsAreShown) {
  for (const bool renamed : {false, true}) {
    EXPECT_EQ(readThrough(idOf("i:1")), "hello");
    EXPECT_EQ(renamed ? rename("a.txt", "b.txt") : 0, 0);
    makeAgain("HELLO");
    EXPECT_EQ(readThrough(idOf("i:2")), "HELLO");
    pushAll();
    extension->remove("i:2");
    put("i:1", "hello");
    list();
  }
}

TEST_F(MadeAgainTest, WhatIsAppendedToTheFormerOneStandsBesideIt) {
  const NodeId file = idOf("i:1");
  readThrough(file);
  ASSERT_EQ(rename("a.txt", "b.txt"), 0);
  const auto writable = open(file);
  engine->openFiles().openedForWriting(file);
  makeAgain("HELLO");
  EXPECT_EQ(writable->write(" here", 5, 5), 5);
  engine->openFiles().closedForWriting(file);
  close(file);
  pushAll();
  list();
  EXPECT_TRUE(hostHas("HELLO"));
  EXPECT_EQ(contentsOf(file), "hello here");
}

}  // namespace
}  // namespace tulo::test
