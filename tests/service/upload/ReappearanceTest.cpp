#include "service/upload/Reappearance.h"

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

// Nothing was listed since the account was set up again: the changes find out by themselves.
class ReappearanceTest : public UploadFixture {
 protected:
  ReappearanceTest() {
    extension->folder("f:1", "Docs");
    extension->folder("f:2", "Deep", "f:1");
    extension->file("i:1", "a.txt", "hello", "f:2");
    extension->file("i:2", "b.txt", "there", "f:2");
    list();
    list(idOf("f:1"));
    list(idOf("f:2"));
  }

  void setUpAgain() {
    for (const char* identifier : {"f:1", "f:2", "i:1", "i:2"}) {
      ScriptedItem item = *extension->find(identifier);
      extension->remove(identifier);
      item.identifier += "'";
      if (item.parent != root()) item.parent += "'";
      extension->put(item);
    }
    commit();
  }

  NodeId deep() { return named("Deep", named("Docs")); }
};

TEST_F(ReappearanceTest, ARenameIsMadeOfTheFileOfThatName) {
  ASSERT_EQ(engine->edits().rename(deep(), "a.txt", deep(), "c.txt", 0), 0);
  setUpAgain();
  pushAll();
  EXPECT_EQ(extension->find("i:1'")->name, "c.txt");
  EXPECT_NE(named("c.txt", deep()), kNoNode);
}

TEST_F(ReappearanceTest, ADeletionIsMadeOfTheFileOfThatName) {
  ASSERT_EQ(engine->edits().removeFile(deep(), "a.txt"), 0);
  setUpAgain();
  pushAll();
  EXPECT_FALSE(extension->find("i:1'"));
  EXPECT_TRUE(extension->find("i:2'"));
}

TEST_F(ReappearanceTest, SoIsThatOfAFolderWithAllThatWasInIt) {
  for (const char* name : {"a.txt", "b.txt"})
    ASSERT_EQ(engine->edits().removeFile(deep(), name), 0);
  ASSERT_EQ(engine->edits().removeFolder(named("Docs"), "Deep"), 0);
  setUpAgain();
  pushAll();
  EXPECT_FALSE(extension->find("i:1'"));
  EXPECT_FALSE(extension->find("i:2'"));
  EXPECT_FALSE(extension->find("f:2'"));
  EXPECT_TRUE(extension->find("f:1'"));
}

TEST_F(ReappearanceTest, ANewFileGoesIntoTheFolderOfThatName) {
  makeFile("new.txt", "new", deep());
  setUpAgain();
  pushAll();
  EXPECT_EQ(extension->named("Docs").size(), 1U);
  EXPECT_EQ(extension->named("Deep").size(), 1U);
  EXPECT_EQ(extension->named("new.txt").at(0).parent, "f:2'");
}

TEST_F(ReappearanceTest, WhatIsReallyGoneIsGone) {
  ASSERT_EQ(engine->edits().rename(deep(), "a.txt", deep(), "c.txt", 0), 0);
  extension->remove("i:1");
  pushAll();
  EXPECT_EQ(named("c.txt", deep()), kNoNode);
}

TEST_F(ReappearanceTest, WhileTheFoldersCannotBeListedNothingIsDecided) {
  ASSERT_EQ(engine->edits().removeFile(deep(), "a.txt"), 0);
  setUpAgain();
  extension->setListingError(
      platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable));
  push();
  EXPECT_EQ(counts().pending, 1);
  extension->setListingError(std::nullopt);
  pushAll();
  EXPECT_FALSE(extension->find("i:1'"));
}

}  // namespace
}  // namespace tulo::test
