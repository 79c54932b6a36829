#include "service/upload/Uploader.h"

#include <linux/fs.h>

#include <cerrno>

#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

using platform::cocoaError;
using platform::fileProviderError;
using platform::NSFileProviderErrorCode;
using platform::NSFileProviderItemContents;

class UploaderTest : public WritingFixture {
 protected:
  void failOnce(const platform::NSError& error, bool done = false) {
    extension->scriptMutation({.error = error, .done = done});
  }

  // What is due goes up between the reading of a listing and its arrival. The host has news
  // besides: a listing without any is not looked at.
  void listDuringPush() {
    extension->file("i:news", "news.txt", "news");
    extension->afterNextListing([this] { push(); });
    list();
  }
};

TEST_F(UploaderTest, ANewFileGoesUpOnceWithItsContentsAfterTheQuietTime) {
  const NodeId id = makeFile("a.txt", "hello");
  EXPECT_EQ(drain(), 0U);
  clock += kQuiet - milliseconds(1);
  EXPECT_EQ(drain(), 0U);
  clock += milliseconds(1);
  EXPECT_EQ(drain(), 1U);
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].kind, Kind::create);
  EXPECT_EQ(sent()[0].contents, "hello");
  EXPECT_FALSE(change(id));
  EXPECT_EQ(row(id)->identifier, "new:1");
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_EQ(row(id)->contentVersion, "1");
}

TEST_F(UploaderTest, AnEmptyFileGoesUpBecauseItIsEmpty) {
  makeFile("empty", "");
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].contents, "");
}

TEST_F(UploaderTest, AFileThatIsBeingWrittenIsNoPlaceholderAtTheHost) {
  const NodeId id = make("a.txt").entry.id;
  {
    OpenFile handle(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content,
                    0);
    handle.setWrites();
    const auto file = open(id);
    push();
    EXPECT_TRUE(sent().empty());
    EXPECT_EQ(file->write("late", 4, 0), 4);
    EXPECT_EQ(engine->files().settle(id), 0);
  }
  engine->files().released(id);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].contents, "late");
}

TEST_F(UploaderTest, EachWriteBeginsTheQuietTimeAnew) {
  const NodeId id = makeFile("a.txt", "one");
  clock += kQuiet / 2;
  write(id, "two");
  clock += kQuiet / 2;
  EXPECT_EQ(drain(), 0U);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].contents, "two");
}

TEST_F(UploaderTest, AFolderGoesUpBeforeWhatIsInIt) {
  const NodeId outer = makeFolder("outer");
  const NodeId inner = makeFolder("inner", outer);
  makeFile("leaf", "x", inner);
  push();
  EXPECT_EQ(sentNames(), (std::vector<std::string>{"outer", "inner", "leaf"}));
  EXPECT_EQ(sent()[2].parent, row(inner)->identifier);
}

TEST_F(UploaderTest, WhatComesAndGoesIsNeverSent) {
  makeFile("a.txt", "hello");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(counts().pending, 0);
}

TEST_F(UploaderTest, RenamesOfOneItemAreOneRequest) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  EXPECT_EQ(rename("b.txt", "c.txt"), 0);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].name, "c.txt");
  EXPECT_FALSE(sent()[0].contents);
  EXPECT_EQ(extension->find("i:1")->name, "c.txt");
  EXPECT_FALSE(change(id));
}

TEST_F(UploaderTest, ARenameThereAndBackIsNotSent) {
  downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  EXPECT_EQ(rename("b.txt", "a.txt"), 0);
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(counts().pending, 0);
}

TEST_F(UploaderTest, ANewFileRenamedOverAnotherIsNewContentsOfThatItem) {
  downloaded("i:1", "doc.txt", "old");
  const NodeId fresh = makeFile("doc.txt.new", "saved");
  EXPECT_EQ(rename("doc.txt.new", "doc.txt"), 0);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].kind, Kind::modify);
  EXPECT_EQ(sent()[0].identifier, "i:1");
  EXPECT_EQ(sent()[0].baseVersion, "1");
  EXPECT_EQ(hostContents("doc.txt"), "saved");
  EXPECT_EQ(row(fresh)->identifier, "i:1");
  EXPECT_EQ(named("doc.txt"), fresh);
}

TEST_F(UploaderTest, ABackupAndANewFileAreNewContentsOfTheItem) {
  downloaded("i:1", "doc.txt", "old");
  EXPECT_EQ(rename("doc.txt", "doc.txt~"), 0);
  makeFile("doc.txt", "saved");
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "saved");
  EXPECT_TRUE(extension->named("doc.txt~").empty());
  EXPECT_EQ(contentsOf(named("doc.txt~")), "old");
}

TEST_F(UploaderTest, FilesThatExchangeTheirNamesKeepTheirContents) {
  downloaded("i:1", "a", "A");
  downloaded("i:2", "b", "B");
  EXPECT_EQ(rename("a", "b", RENAME_EXCHANGE), 0);
  push();
  pushAll();
  EXPECT_EQ(hostContents("a"), "B");
  EXPECT_EQ(hostContents("b"), "A");
  EXPECT_EQ(extension->named("a").size(), 1U);
}

TEST_F(UploaderTest, TemporaryNamesStayHere) {
  makeFile(".~lock.doc.odt#", "me");
  makeFile("a.part", "half");
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(rename("a.part", "a.bin"), 0);
  push();
  EXPECT_EQ(hostContents("a.bin"), "half");
}

TEST_F(UploaderTest, WhatWasDeletedHereIsDeletedThere) {
  downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].kind, Kind::remove);
  EXPECT_FALSE(extension->find("i:1"));
  EXPECT_EQ(counts().pending, 0);
}

TEST_F(UploaderTest, WhatMovedOnAtTheHostIsNotDeletedThere) {
  downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  extension->edit("i:1", "edited there");
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_TRUE(extension->find("i:1"));
  EXPECT_EQ(engine->uploader().statistics().conflicts, 1U);
  list();
  EXPECT_NE(named("a.txt"), kNoNode);
}

TEST_F(UploaderTest, AFolderWithSomethingUnknownInItIsNotDeletedThere) {
  extension->folder("f:1", "Docs");
  list();
  EXPECT_EQ(refresh(idOf("f:1")), 0);
  EXPECT_EQ(engine->edits().removeFolder(kRootNode, "Docs"), 0);
  extension->file("i:9", "new there.txt", "precious", "f:1");
  push();
  EXPECT_TRUE(extension->find("f:1"));
  EXPECT_TRUE(extension->find("i:9"));
  list();
  EXPECT_NE(named("Docs"), kNoNode);
}

TEST_F(UploaderTest, WhatIsInAFolderIsDeletedBeforeTheFolder) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello", "f:1");
  list();
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(refresh(folder), 0);
  EXPECT_EQ(engine->edits().removeFile(folder, "a.txt"), 0);
  EXPECT_EQ(engine->edits().removeFolder(kRootNode, "Docs"), 0);
  push();
  ASSERT_EQ(sent().size(), 2U);
  EXPECT_EQ(sent()[0].identifier, "i:1");
  EXPECT_EQ(sent()[1].identifier, "f:1");
}

TEST_F(UploaderTest, AListingThatIsOlderThanADeleteDoesNotBringTheItemBack) {
  extension->file("i:1", "a.txt", "hello");
  list();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  listDuringPush();
  EXPECT_FALSE(extension->find("i:1"));
  EXPECT_EQ(named("a.txt"), kNoNode);
}

TEST_F(UploaderTest, AListingThatIsOlderThanACreateDoesNotTakeTheItemAway) {
  for (const char* name : {"1.txt", "2.txt", "3.txt"})
    makeFile(name, "hello");
  const NodeId folder = makeFolder("Docs");
  listDuringPush();
  EXPECT_EQ(names().size(), 5U);
  EXPECT_EQ(named("Docs"), folder);
  EXPECT_EQ(hostContents("3.txt"), "hello");
}

TEST_F(UploaderTest, AListingThatIsOlderThanARenameDoesNotUndoIt) {
  extension->file("i:1", "a.txt", "hello");
  list();
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  listDuringPush();
  EXPECT_EQ(extension->find("i:1")->name, "b.txt");
  EXPECT_EQ(named("a.txt"), kNoNode);
  EXPECT_EQ(named("b.txt"), idOf("i:1"));
}

TEST_F(UploaderTest, AListingThatIsOlderThanAMoveDoesNotTakeTheItemBack) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello");
  list();
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(refresh(folder), 0);
  EXPECT_EQ(engine->edits().rename(kRootNode, "a.txt", folder, "a.txt", 0), 0);
  listDuringPush();
  EXPECT_EQ(extension->find("i:1")->parent, "f:1");
  EXPECT_EQ(named("a.txt"), kNoNode);
  EXPECT_NE(named("a.txt", folder), kNoNode);
}

TEST_F(UploaderTest, AListingThatIsOlderThanAnEditDoesNotTakeTheContentsAway) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "from here");
  listDuringPush();
  EXPECT_EQ(hostContents("a.txt"), "from here");
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_EQ(contentsOf(id), "from here");
  EXPECT_EQ(row(id)->contentVersion, std::to_string(extension->find("i:1")->version));
}

TEST_F(UploaderTest, WhatAnOutdatedListingToldOfOthersIsTaken) {
  extension->file("i:1", "a.txt", "hello");
  list();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  listDuringPush();
  EXPECT_EQ(named("a.txt"), kNoNode);
  EXPECT_NE(named("news.txt"), kNoNode);
}

TEST_F(UploaderTest, BothVersionsStayWhenBothSidesEdited) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  extension->edit("i:1", "theirs");
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "theirs");
  const Node mine = *row(id);
  EXPECT_NE(mine.name.find("a (conflicted copy of "), std::string::npos) << mine.name;
  EXPECT_EQ(hostContents(mine.name), "mine");
  EXPECT_NE(named("a.txt"), kNoNode);
  EXPECT_NE(named("a.txt"), id);
  EXPECT_EQ(engine->uploader().statistics().conflicts, 1U);
}

TEST_F(UploaderTest, OtherContentsOfTheSameSizeAreAConflict) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "here!!");
  extension->edit("i:1", "there!");
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "there!");
  EXPECT_EQ(hostContents(row(id)->name), "here!!");
  EXPECT_EQ(engine->uploader().statistics().conflicts, 1U);
}

TEST_F(UploaderTest, TheSameBytesOnBothSidesAreNoConflict) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "the same");
  extension->edit("i:1", "the same");
  push();
  pushAll();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_FALSE(change(id));
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(UploaderTest, ARenameGoesUpThoughBothSidesHaveTheSameBytes) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "the same");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  extension->edit("i:1", "the same");
  push();
  pushAll();
  EXPECT_EQ(hostContents("b.txt"), "the same");
  EXPECT_EQ(row(id)->identifier, "i:1");
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(UploaderTest, AWriteAfterTheSameBytesOnBothSidesGoesUp) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "the same");
  extension->edit("i:1", "the same");
  push();
  write(id, "once more");
  push();
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "once more");
  EXPECT_EQ(names().size(), 1U);
}

TEST_F(UploaderTest, EditedHereAndDeletedThereIsMadeAgain) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  extension->remove("i:1");
  push();
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "mine");
  EXPECT_EQ(row(id)->identifier, "new:1");
}

TEST_F(UploaderTest, RenamedHereAndDeletedThereIsGone) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  extension->remove("i:1");
  push();
  pushAll();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(named("b.txt"), kNoNode);
  EXPECT_FALSE(change(id));
}

TEST_F(UploaderTest, AFolderThatIsGoneThereIsMadeAgainForWhatIsNewInIt) {
  extension->folder("f:1", "Docs");
  list();
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(refresh(folder), 0);
  makeFile("new.txt", "x", folder);
  extension->remove("f:1");
  push();
  pushAll();
  ASSERT_EQ(extension->named("Docs").size(), 1U);
  ASSERT_EQ(extension->named("new.txt").size(), 1U);
  EXPECT_EQ(extension->named("new.txt")[0].parent, extension->named("Docs")[0].identifier);
}

TEST_F(UploaderTest, AFileWhoseReplyWasLostIsNotMadeTwice) {
  const NodeId id = makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  EXPECT_TRUE(change(id)->sent);
  pushAll();
  EXPECT_EQ(sent().size(), 1U);
  EXPECT_EQ(extension->named("a.txt").size(), 1U);
  EXPECT_EQ(row(id)->identifier, "new:1");
}

TEST_F(UploaderTest, AFolderWhoseReplyWasLostIsNotMadeTwice) {
  const NodeId folder = makeFolder("Docs");
  makeFile("a.txt", "hello", folder);
  failOnce(fileProviderError(NSFileProviderErrorCode::serverUnreachable), true);
  push();
  pushAll();
  EXPECT_EQ(extension->named("Docs").size(), 1U);
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(UploaderTest, AnEditWhoseReplyWasLostIsNoConflict) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "mine");
  EXPECT_EQ(extension->find("i:1")->version, 2);
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(UploaderTest, AFileOfTheSameNameWithOtherContentsIsNotTakenForTheLostOne) {
  makeFile("a.txt", "mine!");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize));
  push();
  extension->file("i:7", "a.txt", "other");
  pushAll();
  EXPECT_EQ(extension->find("i:7")->contents, "other");
  EXPECT_EQ(extension->named("a.txt").size(), 2U);
}

TEST_F(UploaderTest, DeletedWhileTheReplyIsLostIsDeletedThere) {
  makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  pushAll();
  EXPECT_TRUE(extension->named("a.txt").empty());
}

TEST_F(UploaderTest, AWriteDuringTheUploadGoesUpAfterwards) {
  const NodeId id = makeFile("a.txt", "first");
  extension->scriptMutation({.before = [&] { write(id, "second"); }});
  push();
  EXPECT_EQ(extension->find("new:1")->contents, "first");
  pushAll();
  ASSERT_EQ(sent().size(), 2U);
  EXPECT_EQ(sent()[1].kind, Kind::modify);
  EXPECT_EQ(extension->find("new:1")->contents, "second");
  EXPECT_EQ(contentsOf(id), "second");
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(UploaderTest, ARenameDuringTheUploadGoesUpAfterwards) {
  const NodeId id = makeFile("a.txt", "first");
  extension->scriptMutation({.before = [&] { EXPECT_EQ(rename("a.txt", "b.txt"), 0); }});
  push();
  pushAll();
  EXPECT_TRUE(extension->named("a.txt").empty());
  EXPECT_EQ(hostContents("b.txt"), "first");
  EXPECT_EQ(row(id)->identifier, "new:1");
}

TEST_F(UploaderTest, QuotaIsTriedAgainForEverAndShown) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = fileProviderError(NSFileProviderErrorCode::insufficientQuota)});
  push();
  for (int i = 0; i < 12; ++i) {
    clock += milliseconds(10 * 60 * 1000);
    drain();
  }
  EXPECT_EQ(sent().size(), 13U);
  EXPECT_FALSE(change(id)->attention);
  EXPECT_FALSE(row(id)->error.empty());
  EXPECT_EQ(counts().pending, 1);
  extension->scriptMutations(std::nullopt);
  pushAll();
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_TRUE(row(id)->error.empty());
}

TEST_F(UploaderTest, AFailureWaitsForItsPause) {
  const NodeId id = makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::insufficientQuota));
  push();
  const WallTime due = change(id)->due;
  EXPECT_GT(due, clock);
  EXPECT_EQ(drain(), 0U);
  clock = due - milliseconds(1);
  EXPECT_EQ(drain(), 0U);
  clock = due;
  EXPECT_EQ(drain(), 1U);
  EXPECT_EQ(sent().size(), 2U);
}

TEST_F(UploaderTest, NothingGoesUpUntilSomebodyHasSignedIn) {
  makeFile("a.txt", "hello");
  makeFile("b.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::notAuthenticated));
  push();
  EXPECT_EQ(sent().size(), 1U);
  EXPECT_TRUE(engine->uploader().statistics().paused);
  EXPECT_EQ(counts().attention, 0);
  engine->uploader().retry(false);
  drain();
  EXPECT_FALSE(engine->uploader().statistics().paused);
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_EQ(hostContents("b.txt"), "hello");
}

TEST_F(UploaderTest, WhatTheHostRefusesWaitsForTheUser) {
  const NodeId id = makeFile("a?.txt", "hello");
  failOnce(cocoaError(platform::NSFileWriteInvalidFileNameError));
  push();
  EXPECT_TRUE(change(id)->attention);
  EXPECT_FALSE(row(id)->error.empty());
  EXPECT_EQ(counts().attention, 1);
  clock += milliseconds(24 * 3600 * 1000);
  EXPECT_EQ(drain(), 0U);
  EXPECT_EQ(contentsOf(id), "hello");
  engine->uploader().retry(true);
  drain();
  EXPECT_EQ(hostContents("a?.txt"), "hello");
  EXPECT_EQ(counts().attention, 0);
}

TEST_F(UploaderTest, AnotherNameFreesWhatWasRefused) {
  const NodeId id = makeFile("a?.txt", "hello");
  failOnce(cocoaError(platform::NSFileWriteInvalidFileNameError));
  push();
  EXPECT_EQ(rename("a?.txt", "a.txt"), 0);
  EXPECT_FALSE(change(id)->attention);
  push();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(UploaderTest, WhatFailsForNoKnownReasonIsGivenUpAfterSomeAttempts) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = fileProviderError(NSFileProviderErrorCode::cannotSynchronize)});
  push();
  for (int i = 0; i < 40 && !change(id)->attention; ++i) {
    clock += milliseconds(10 * 60 * 1000);
    drain();
  }
  EXPECT_TRUE(change(id)->attention);
  EXPECT_EQ(contentsOf(id), "hello");
  EXPECT_LE(sent().size(), static_cast<std::size_t>(kUncertainAttempts));
}

TEST_F(UploaderTest, AnUnreachableHostIsTriedForEver) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->scriptMutations(ScriptedExtension::MutationScript{
      .error = fileProviderError(NSFileProviderErrorCode::serverUnreachable)});
  push();
  for (int i = 0; i < 20; ++i) {
    clock += milliseconds(10 * 60 * 1000);
    drain();
  }
  EXPECT_FALSE(change(id)->attention);
  EXPECT_TRUE(row(id)->error.empty());
  extension->scriptMutations(std::nullopt);
  pushAll();
  EXPECT_EQ(extension->named("a.txt").size(), 1U);
}

TEST_F(UploaderTest, NothingIsSentWithoutAHost) {
  std::filesystem::remove(directory.file("fp.sock"));
  makeFile("a.txt", "hello");
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(counts().pending, 1);
  writeFile(directory.file("fp.sock"), "");
  drain();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(UploaderTest, ChangesGoUpAfterARestart) {
  makeFile("a.txt", "hello");
  const NodeId edited = downloaded("i:1", "b.txt", "base");
  write(edited, "mine");
  reopen();
  push();
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_EQ(hostContents("b.txt"), "mine");
}

TEST_F(UploaderTest, ARequestOfAnEarlierRunIsNotMadeTwice) {
  const NodeId id = makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  reopen();
  pushAll();
  EXPECT_EQ(extension->named("a.txt").size(), 1U);
  EXPECT_EQ(row(id)->identifier, "new:1");
}

TEST_F(UploaderTest, DiscardShowsTheHostsStateAgain) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  EXPECT_EQ(engine->uploader().discard(id), 0);
  EXPECT_EQ(counts().pending, 0);
  list();
  EXPECT_EQ(readThrough(named("a.txt")), "base");
  EXPECT_EQ(engine->uploader().discard(named("a.txt")), ENOENT);
}

// Two files that exchange their names, stopped when one of them has made room for the other.
class AsideTest : public UploaderTest {
 protected:
  AsideTest() {
    downloaded("i:1", "a", "A");
    downloaded("i:2", "b", "B");
    EXPECT_EQ(rename("a", "b", RENAME_EXCHANGE), 0);
    clock += kQuiet;
    EXPECT_TRUE(engine->uploader().step());
    aside = sent().front().identifier;
    EXPECT_TRUE(isAsideName(extension->find(aside)->name)) << extension->find(aside)->name;
  }

  std::string formerName() const { return aside == "i:1" ? "a" : "b"; }
  std::string nameHere() const { return aside == "i:1" ? "b" : "a"; }
  std::string contents() const { return aside == "i:1" ? "A" : "B"; }

  std::string aside;
};

TEST_F(AsideTest, DiscardGivesTheFormerNameBack) {
  EXPECT_EQ(engine->uploader().discard(idOf(aside)), 0);
  EXPECT_EQ(extension->find(aside)->name, formerName());
  list();
  EXPECT_FALSE(change(idOf(aside)));
  EXPECT_EQ(readThrough(idOf(aside)), contents());
}

TEST_F(AsideTest, DiscardGivesTheNewNameIfTheFormerOneIsTaken) {
  EXPECT_TRUE(engine->uploader().step());
  EXPECT_EQ(extension->named(formerName()).size(), 1U);
  EXPECT_EQ(engine->uploader().discard(idOf(aside)), 0);
  EXPECT_EQ(extension->find(aside)->name, nameHere());
  EXPECT_EQ(extension->named(formerName()).size(), 1U);
}

TEST_F(AsideTest, DiscardIsRefusedWhereBothAreTaken) {
  EXPECT_TRUE(engine->uploader().step());
  extension->file("i:3", nameHere(), "somebody else's");
  const NodeId id = idOf(aside);
  EXPECT_EQ(engine->uploader().discard(id), EEXIST);
  EXPECT_TRUE(change(id));
  extension->remove("i:3");
  pushAll();
  EXPECT_EQ(hostContents(nameHere()), contents());
}

TEST_F(AsideTest, DiscardNeedsTheHost) {
  extension->setListingError(
      platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable));
  const NodeId id = idOf(aside);
  EXPECT_EQ(engine->uploader().discard(id), EHOSTDOWN);
  EXPECT_TRUE(change(id));
  extension->setListingError(std::nullopt);
  pushAll();
  EXPECT_EQ(hostContents(nameHere()), contents());
}

TEST_F(AsideTest, NothingIsRememberedOnceEachHasItsName) {
  pushAll();
  EXPECT_EQ(hostContents(nameHere()), contents());
  EXPECT_EQ(engine->replica().read([](ReplicaReader& reader) {
    return askSql(reader, "SELECT count(*) FROM meta WHERE key LIKE 'place before%'");
  }),
            0);
}

TEST_F(UploaderTest, DiscardRefusesANewFolderWithSomethingInIt) {
  const NodeId folder = makeFolder("Docs");
  makeFile("a.txt", "x", folder);
  EXPECT_EQ(engine->uploader().discard(folder), ENOTEMPTY);
  push();
  EXPECT_EQ(hostContents("a.txt"), "x");
}

TEST_F(UploaderTest, MovesBetweenFoldersKeepTheIdentity) {
  extension->folder("f:1", "Docs");
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(refresh(folder), 0);
  EXPECT_EQ(engine->edits().rename(kRootNode, "a.txt", folder, "a.txt", 0), 0);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].identifier, "i:1");
  EXPECT_EQ(extension->find("i:1")->parent, "f:1");
  EXPECT_FALSE(change(id));
}

TEST_F(UploaderTest, AFileMovedIntoANewFolderWaitsForIt) {
  downloaded("i:1", "a.txt", "hello");
  const NodeId folder = makeFolder("New");
  EXPECT_EQ(engine->edits().rename(kRootNode, "a.txt", folder, "a.txt", 0), 0);
  push();
  ASSERT_EQ(sent().size(), 2U);
  EXPECT_EQ(sent()[0].name, "New");
  EXPECT_EQ(extension->find("i:1")->parent, "new:1");
}

}  // namespace
}  // namespace tulo::test
