#include "service/upload/UploadOrder.h"

#include <linux/fs.h>

#include <algorithm>

#include "service/upload/AsideName.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

using platform::fileProviderError;
using platform::NSFileProviderErrorCode;

class UploadOrderTest : public WritingFixture {
 protected:
  // The next request is carried out, and its answer is lost.
  void loseAnswer() {
    extension->scriptMutation(
        {.error = fileProviderError(NSFileProviderErrorCode::cannotSynchronize), .done = true});
  }

  // What is changed after this is due a little later than what was changed before it.
  void pass() { clock += kLater; }

  // Sends what was changed before pass(), and nothing else.
  unsigned pushEarlier() {
    clock += kQuiet - kLater;
    return drain();
  }

  NodeId folder(const std::string& identifier, const std::string& name) {
    extension->folder(identifier, name);
    list();
    const NodeId id = idOf(identifier);
    EXPECT_EQ(refresh(id), 0);
    return id;
  }

  int move(NodeId from, const std::string& name, NodeId to, const std::string& newName) {
    return engine->edits().rename(from, name, to, newName, 0);
  }

  bool isAnyAsideSent() {
    const auto all = sentNames();
    return std::any_of(all.begin(), all.end(), isAsideName);
  }

  static constexpr milliseconds kLater = kQuiet / 10;
};

TEST_F(UploadOrderTest, ANewFileRestsWhileTheOneWhosePlaceItTakesIsBeingDeleted) {
  downloaded("i:1", "a.txt", "old");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  bool asked = false;
  extension->scriptMutation({.before = [&] {
    asked = true;
    makeFile("a.txt", "new");
    clock += kQuiet;
    EXPECT_FALSE(engine->uploader().step());
  }});
  push();
  EXPECT_TRUE(asked);
  pushAll();
  EXPECT_FALSE(extension->find("i:1"));
  EXPECT_EQ(hostContents("a.txt"), "new");
}

TEST_F(UploadOrderTest, OneStepsAsideWhenFilesThatExchangeTheirNamesAreDueTogether) {
  downloaded("i:1", "a", "A");
  downloaded("i:2", "b", "B");
  EXPECT_EQ(rename("a", "b", RENAME_EXCHANGE), 0);
  bool asked = false;
  extension->scriptMutation({.before = [&] {
    asked = true;
    EXPECT_FALSE(engine->uploader().step());
  }});
  push();
  EXPECT_TRUE(asked);
  pushAll();
  EXPECT_EQ(hostContents("a"), "B");
  EXPECT_EQ(hostContents("b"), "A");
  EXPECT_EQ(sent().size(), 3U);
}

TEST_F(UploadOrderTest, AFolderWaitsUntilItIsKnownThatItsNewFolderIsNotInsideIt) {
  const NodeId a = folder("f:1", "A");
  const NodeId b = folder("f:2", "B");
  EXPECT_EQ(move(kRootNode, "B", a, "B"), 0);
  loseAnswer();
  push();
  ASSERT_TRUE(change(b)->request.isOpen());
  EXPECT_EQ(move(a, "B", kRootNode, "B"), 0);
  EXPECT_EQ(move(kRootNode, "A", b, "A"), 0);
  pass();
  EXPECT_EQ(rename("B", "C"), 0);
  EXPECT_EQ(pushEarlier(), 0U);
  EXPECT_EQ(sent().size(), 1U);
  pushAll();
  ASSERT_EQ(sent().size(), 3U);
  EXPECT_EQ(sent()[1].identifier, "f:2");
  EXPECT_EQ(sent()[2].identifier, "f:1");
  EXPECT_EQ(extension->find("f:1")->parent, "f:2");
  EXPECT_EQ(extension->find("f:2")->parent, root());
}

TEST_F(UploadOrderTest, APlaceThatAnUnansweredRequestMayHaveTakenIsWaitedFor) {
  const NodeId first = makeFile("a.txt", "first");
  loseAnswer();
  push();
  ASSERT_TRUE(change(first)->request.isOpen());
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  makeFile("a.txt", "second");
  pass();
  EXPECT_EQ(rename("b.txt", "c.txt"), 0);
  EXPECT_EQ(pushEarlier(), 0U);
  EXPECT_EQ(sent().size(), 1U);
  pushAll();
  EXPECT_EQ(sentNames(), (std::vector<std::string>{"a.txt", "c.txt", "a.txt"}));
  EXPECT_EQ(hostContents("c.txt"), "first");
  EXPECT_EQ(hostContents("a.txt"), "second");
}

TEST_F(UploadOrderTest, APlaceIsNotWaitedForOnceTheUnansweredRequestIsGivenUp) {
  const NodeId first = makeFile("a.txt", "first");
  loseAnswer();
  push();
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  makeFile("a.txt", "second");
  extension->setListingError(fileProviderError(NSFileProviderErrorCode::cannotSynchronize));
  for (int i = 0; i < 40 && !change(first)->standing.isRefused(); ++i) {
    EXPECT_EQ(sent().size(), 1U);
    clock += milliseconds(60 * 1000);
    engine->uploader().step();
  }
  ASSERT_TRUE(change(first)->standing.isRefused());
  ASSERT_TRUE(change(first)->request.isOpen());
  drain();
  ASSERT_EQ(sent().size(), 2U);
  EXPECT_EQ(sent()[1].contents, "second");
}

TEST_F(UploadOrderTest, AFileLeavesADeletedFolderWhosePlaceItTakesForANameInBetween) {
  const NodeId docs = folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello", "f:1");
  list(docs);
  EXPECT_EQ(move(docs, "a.txt", kRootNode, "moving"), 0);
  EXPECT_EQ(engine->edits().removeFolder(kRootNode, "Docs"), 0);
  EXPECT_EQ(rename("moving", "Docs"), 0);
  push();
  pushAll();
  ASSERT_EQ(sent().size(), 3U);
  EXPECT_TRUE(isAsideName(sent()[0].name));
  EXPECT_EQ(sent()[0].parent, root());
  EXPECT_FALSE(extension->find("f:1"));
  EXPECT_EQ(extension->find("i:1")->name, "Docs");
  EXPECT_EQ(extension->find("i:1")->parent, root());
}

TEST_F(UploadOrderTest, AFileStaysInAFolderThatIsOnlyRenamedUntilItsNewPlaceIsFree) {
  const NodeId docs = folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello", "f:1");
  list(docs);
  downloaded("i:2", "b.txt", "other");
  EXPECT_EQ(rename("b.txt", "c.txt"), 0);
  EXPECT_EQ(move(docs, "a.txt", kRootNode, "b.txt"), 0);
  pass();
  EXPECT_EQ(rename("c.txt", "d.txt"), 0);
  EXPECT_EQ(rename("Docs", "Papers"), 0);
  EXPECT_EQ(pushEarlier(), 0U);
  pushAll();
  EXPECT_FALSE(isAnyAsideSent());
  EXPECT_EQ(sent().size(), 3U);
  EXPECT_EQ(hostContents("b.txt"), "hello");
  EXPECT_EQ(hostContents("d.txt"), "other");
}

}  // namespace
}  // namespace tulo::test
