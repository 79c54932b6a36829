#include "service/contents/Contents.h"

#include <fcntl.h>

#include <cerrno>
#include <filesystem>

#include "service/replica/ContentRows.h"
#include "service/replica/Meta.h"
#include "tests/service/support/EngineFixture.h"
#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

using platform::NSFileProviderErrorCode;
using Script = ScriptedExtension::FetchScript;

class ContentsTest : public EngineFixture {
 protected:
  NodeId oneFile(const std::string& contents = "hello") {
    extension->file("i:1", "a.txt", contents);
    EXPECT_EQ(refresh(), 0);
    return idOf("i:1");
  }

  std::size_t filesIn(const std::string& below) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(below)) {
      if (entry.is_regular_file()) ++count;
    }
    return count;
  }
};

TEST_F(ContentsTest, AFileIsFetchedOnceAndThenHere) {
  const NodeId id = oneFile();
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 1U);
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_GT(row(id)->blocks, 0);
  EXPECT_EQ(engine->store().used(), row(id)->blocks * 512);
  EXPECT_TRUE(delivered().has(attributesChanged(id)));
}

class LargeFolderTest : public ContentsTest {
 protected:
  LargeFolderTest() {
    for (int i = 0; i < 300; ++i)
      extension->file("i:" + std::to_string(i), "file" + std::to_string(i), "hello");
    refresh();
    id = idOf("i:7");
    EXPECT_EQ(readThrough(id), "hello");
    listings = extension->listingCount();
  }

  NodeId id = kNoNode;
  std::size_t listings = 0;
};

TEST_F(LargeFolderTest, OpeningLooksTheFileUpInsteadOfListingItsFolder) {
  extension->file("i:new", "new", "");
  commit();
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->listingCount(), listings);
  EXPECT_EQ(engine->sync().statistics().lookUps, 1U);
  // A file that is not here yet is as fresh as the look-up.
  EXPECT_EQ(readThrough(idOf("i:8")), "hello");
  EXPECT_EQ(extension->listingCount(), listings);
}

TEST_F(LargeFolderTest, AFileThatChangedIsFoundByListing) {
  extension->edit("i:7", "changed");
  commit();
  EXPECT_EQ(readThrough(id), "changed");
  EXPECT_GT(extension->listingCount(), listings);
}

TEST_F(LargeFolderTest, AFileThatIsGoneOrElsewhereIsFoundByListing) {
  extension->folder("f:1", "folder");
  refresh();
  extension->change("i:7", [](ScriptedItem& item) { item.parent = "f:1"; });
  extension->remove("i:8");
  commit();
  const NodeId gone = idOf("i:8");
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(names().count("file7"), 0U);
  EXPECT_EQ(names().count("file8"), 0U);
  EXPECT_NE(gone, kNoNode);
}

TEST_F(LargeFolderTest, ALookUpThatFailsLeavesItToTheListing) {
  extension->setLookUpError(fileProviderError(NSFileProviderErrorCode::cannotSynchronize));
  commit();
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->listingCount(), listings + 1);
}

TEST_F(ContentsTest, AnEmptyFileIsNeverFetched) {
  const NodeId id = oneFile("");
  EXPECT_EQ(readThrough(id), "");
  EXPECT_EQ(extension->fetchCount(), 0U);
}

TEST_F(ContentsTest, ManyOpenersShareOneFetch) {
  const NodeId id = oneFile();
  extension->holdFetches();
  std::vector<std::future<OpenAnswer>> answers;
  for (int i = 0; i < 20; ++i) {
    answers.push_back(std::async(std::launch::async, [&] { return openFile(id); }));
  }
  ASSERT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
  extension->releaseFetches();
  for (auto& answer : answers)
    EXPECT_EQ(answer.get().error, 0);
  EXPECT_EQ(extension->fetchCount(), 1U);
}

TEST_F(ContentsTest, NobodyElseWaitsForTheProviderToTakeARequest) {
  const NodeId id = oneFile();
  std::promise<void> take;
  extension->whenFetching([taken = take.get_future().share()] { taken.wait(); });
  std::promise<int> answered;
  const auto ticket =
      engine->contents().beginOpen([&](OpenAnswer answer) { answered.set_value(answer.error); });
  const auto asked = std::async(
      std::launch::async, [&] { engine->contents().proceed(ticket, id, 0, OpenStep::fetch); });
  EXPECT_EQ(asked.wait_for(patience), std::future_status::ready);
  take.set_value();
  EXPECT_EQ(answered.get_future().get(), 0);
}

TEST_F(ContentsTest, AWaitingOpenerMayGiveUpWhileTheFetchRunsOn) {
  const NodeId id = oneFile();
  extension->holdFetches();
  std::promise<int> gaveUp;
  const auto ticket =
      engine->contents().beginOpen([&](OpenAnswer answer) { gaveUp.set_value(answer.error); });
  engine->contents().proceed(ticket, id, 0, OpenStep::fetch);
  ASSERT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
  engine->contents().cancel(ticket);
  EXPECT_EQ(gaveUp.get_future().get(), EINTR);
  extension->releaseFetches();
  EXPECT_TRUE(eventually([&] { return row(id)->state == ContentState::downloaded; }));
}

TEST_F(ContentsTest, AnInterruptBeforeTheOpenerIsArmedIsNotLost) {
  const NodeId id = oneFile();
  std::promise<int> gaveUp;
  const auto ticket =
      engine->contents().beginOpen([&](OpenAnswer answer) { gaveUp.set_value(answer.error); });
  engine->contents().cancel(ticket);
  engine->contents().proceed(ticket, id, 0, OpenStep::fetch);
  EXPECT_EQ(gaveUp.get_future().get(), EINTR);
  EXPECT_EQ(extension->fetchCount(), 0U);
}

TEST_F(ContentsTest, AnErrorReachesEveryWaiterAndTheNextOpenTriesAgain) {
  const NodeId id = oneFile();
  extension->scriptFetch({.error = fileProviderError(NSFileProviderErrorCode::serverUnreachable)});
  EXPECT_EQ(openFile(id).error, EHOSTDOWN);
  EXPECT_EQ(row(id)->error, "");
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(ContentsTest, AnErrorThatWaitingDoesNotHelpIsShownUntilItGoesWell) {
  const NodeId id = oneFile();
  extension->scriptFetch({.error = fileProviderError(NSFileProviderErrorCode::cannotSynchronize)});
  EXPECT_EQ(openFile(id).error, EIO);
  EXPECT_NE(row(id)->error, "");
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(row(id)->error, "");
}

TEST_F(ContentsTest, NonsenseIsNeverShownAsContents) {
  const NodeId id = oneFile();
  const std::vector<Script> nonsense = {
      {.noFile = true},  {.missingFile = true}, {.directory = true},
      {.bytes = "hell"}, {.bytes = ""},         {.bytes = "hello, and more"},
  };
  for (const Script& script : nonsense) {
    for (int i = 0; i < 3; ++i)
      extension->scriptFetch(script);
    EXPECT_EQ(openFile(id).error, EIO);
    EXPECT_EQ(row(id)->state, ContentState::dataless);
    EXPECT_NE(row(id)->error, "");
  }
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(ContentsTest, AFileThatIsNotTakenIsRemovedOnlyFromTheSharedDirectory) {
  const TemporaryDirectory elsewhere;
  writeFile(elsewhere.file("precious"), "not a download");
  writeFile(directory.file("left over"), "a download of the wrong size");
  std::filesystem::create_directory_symlink(elsewhere.path(), directory.file("link"));
  engine->store().discard(elsewhere.file("precious"));
  engine->store().discard(directory.file("link") + "/precious");
  engine->store().discard(directory.path() + "/../precious");
  engine->store().discard(directory.path());
  engine->store().discard("");
  EXPECT_EQ(readFile(elsewhere.file("precious")), "not a download");
  EXPECT_TRUE(std::filesystem::exists(directory.path()));
  engine->store().discard(directory.file("left over"));
  EXPECT_FALSE(std::filesystem::exists(directory.file("left over")));
}

TEST_F(ContentsTest, ASlipIsRepairedByFetchingAgain) {
  const NodeId id = oneFile();
  extension->scriptFetch({.bytes = "hel"});
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(ContentsTest, AVersionThatMovesOnDuringTheFetchIsFetchedAgain) {
  const NodeId id = oneFile("old!!");
  // The bytes are those of the old version; the item that comes with them is the new one.
  extension->scriptFetch({.bytes = "old!!", .before = [this] { extension->edit("i:1", "new!!"); }});
  EXPECT_EQ(readThrough(id), "new!!");
  EXPECT_EQ(row(id)->contentVersion, "2");
}

TEST_F(ContentsTest, AFileWithoutItsItemIsTakenIfItFits) {
  const NodeId id = oneFile();
  extension->scriptFetch({.noItem = true});
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(ContentsTest, AFileThatTheHostStillHoldsUnderAnotherNameIsCopied) {
  const NodeId id = oneFile();
  extension->scriptFetch({.hardLink = true});
  EXPECT_EQ(readThrough(id), "hello");
  for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
    if (entry.path().string().ends_with("-original")) writeFile(entry.path(), "HELLO");
  }
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(ContentsTest, EvictionGivesTheRoomBackAndTheFileComesAgain) {
  const NodeId id = oneFile();
  readThrough(id);
  EXPECT_EQ(engine->contents().evict(id), 0);
  EXPECT_EQ(row(id)->state, ContentState::dataless);
  EXPECT_EQ(row(id)->blocks, 0);
  EXPECT_EQ(engine->store().used(), 0);
  EXPECT_EQ(filesIn(options.stateDirectory + "/contents"), 0U);
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(ContentsTest, WhatIsOpenOrPinnedIsNotEvicted) {
  const NodeId id = oneFile();
  {
    const OpenAnswer open = openFile(id);
    EXPECT_EQ(engine->contents().evict(id), EBUSY);
    EXPECT_EQ(contentsOf(*open.file), "hello");
  }
  engine->pins().setPinned(id, true);
  EXPECT_EQ(engine->contents().evict(id), EBUSY);
  engine->pins().setPinned(id, false);
  EXPECT_EQ(engine->contents().evict(id), 0);
}

TEST_F(ContentsTest, TheSizeLimitEvictsTheLeastRecentlyUsedFirst) {
  options.limits.size = 3 * 8192;
  reopen();
  for (int i = 1; i <= 4; ++i) {
    extension->file("i:" + std::to_string(i), std::to_string(i), std::string(8192, 'x'));
  }
  refresh();
  for (int i = 1; i <= 3; ++i) {
    readThrough(idOf("i:" + std::to_string(i)));
    engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
      // Uses within one second cannot be told apart, so they are spread here.
      writer.setLastUsed(idOf("i:" + std::to_string(i)), atSecond(i == 1 ? 100 : i));
    });
  }
  // The first one was used last; the second one goes.
  engine->contents().saveUseStep();
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    writer.setLastUsed(idOf("i:1"), atSecond(100));
    writer.setLastUsed(idOf("i:2"), atSecond(2));
    writer.setLastUsed(idOf("i:3"), atSecond(3));
  });
  readThrough(idOf("i:4"));
  EXPECT_EQ(row(idOf("i:2"))->state, ContentState::dataless);
  EXPECT_EQ(row(idOf("i:1"))->state, ContentState::downloaded);
  EXPECT_LE(engine->store().used(), options.limits.size);
}

TEST_F(ContentsTest, AFullDiskIsReportedBeforeItIsFull) {
  options.limits.keepFreeBytes = std::int64_t{1} << 60;
  reopen();
  const NodeId id = oneFile();
  EXPECT_EQ(openFile(id).error, ENOSPC);
  EXPECT_EQ(extension->fetchCount(), 0U);
}

TEST_F(ContentsTest, APinnedFolderIsFetchedAheadAndSoIsWhatComesLater) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "hello", "f:1");
  refresh();
  ASSERT_EQ(engine->pins().setPinned(idOf("f:1"), true), 0);
  engine->housekeepingStep();
  ASSERT_TRUE(eventually([&] {
    engine->housekeepingStep();
    const auto found = node("i:1");
    return found && found->state == ContentState::downloaded;
  }));
  extension->file("i:2", "b.txt", "later", "f:1");
  commit();
  while (engine->sync().sweepStep()) {
  }
  ASSERT_TRUE(eventually([&] {
    engine->housekeepingStep();
    const auto found = node("i:2");
    return found && found->state == ContentState::downloaded;
  }));
  engine->pins().setPinned(idOf("f:1"), false);
  EXPECT_FALSE(node("i:2")->kept);
  EXPECT_EQ(engine->contents().evict(idOf("i:2")), 0);
}

TEST_F(ContentsTest, UnsyncedContentsAreNotTrustedAfterAnotherBoot) {
  const NodeId id = oneFile();
  readThrough(id);
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    meta::set(writer, "boot", std::string_view("an earlier one"));
  });
  reopen();
  EXPECT_EQ(row(id)->state, ContentState::dataless);
  readThrough(id);
  EXPECT_TRUE(engine->contents().durableStep());
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    meta::set(writer, "boot", std::string_view("an earlier one"));
  });
  reopen();
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
}

TEST_F(ContentsTest, WhatWasChangedHereSurvivesAnotherBootWithoutHavingBeenSynced) {
  const EditResult made = engine->edits().makeFile(kRootNode, "new.txt", 0600);
  ASSERT_EQ(made.error, 0);
  const auto file = engine->files().open(made.entry.id).file;
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(file->write("unsent", 6, 0), 6);
  ASSERT_EQ(engine->files().settle(made.entry.id), 0);
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    meta::set(writer, "boot", std::string_view("an earlier one"));
  });
  reopen();
  engine->housekeepingStep();
  EXPECT_EQ(row(made.entry.id)->state, ContentState::dirty);
  EXPECT_EQ(std::filesystem::file_size(engine->store().path(row(made.entry.id)->content)), 6U);
}

TEST_F(ContentsTest, ContentsThatWereCutShortOnTheDiskAreAnErrorNotAShortFile) {
  const NodeId id = oneFile();
  readThrough(id);
  ASSERT_EQ(::truncate(engine->store().path(row(id)->content).c_str(), 2), 0);
  const OpenAnswer open = openFile(id);
  ASSERT_EQ(open.error, 0);
  EXPECT_THROW(open.file->descriptor(), ContentError);
}

TEST_F(ContentsTest, ContentsThatCannotBeReadAreFetchedByTheNextOpen) {
  const NodeId id = oneFile();
  EXPECT_EQ(readThrough(id), "hello");
  std::filesystem::remove(engine->store().path(row(id)->content));
  const OpenAnswer broken = openFile(id);
  ASSERT_EQ(broken.error, 0);
  try {
    broken.file->descriptor();
    FAIL() << "the file is not there";
  } catch (const ContentError& error) {
    engine->contents().cannotRead(*broken.file, error);
  }
  EXPECT_EQ(row(id)->state, ContentState::dataless);
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(ContentsTest, WhatIsEvictedBetweenItsFetchAndItsOpenIsFetchedAgain) {
  const NodeId id = oneFile();
  extension->holdFetches();
  // Whoever waits is called in order of arrival.
  engine->contents().fetch(id, Contents::Priority::opened,
                           [&](int) { EXPECT_EQ(engine->contents().evict(id), 0); });
  ASSERT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
  std::promise<int> opened;
  const auto ticket =
      engine->contents().beginOpen([&](OpenAnswer answer) { opened.set_value(answer.error); });
  engine->contents().proceed(ticket, id, 0, OpenStep::fetch);
  extension->releaseFetches();
  EXPECT_EQ(opened.get_future().get(), 0);
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(ContentsTest, AShortageOfDescriptorsIsNoReasonToFetchAgain) {
  const NodeId id = oneFile();
  EXPECT_EQ(readThrough(id), "hello");
  const OpenAnswer answer = openFile(id);
  engine->contents().cannotRead(*answer.file, ContentError(EMFILE, "too many open files"));
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
}

TEST_F(ContentsTest, ContentsOnTheirWayAreNoLeftOvers) {
  const NodeId id = oneFile();
  std::optional<IncomingContent> incoming;
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    incoming.emplace(engine->store(), contentRows::reserve(writer, id));
  });
  engine->store().create(incoming->number(), "a.txt");
  while (engine->contents().purgeStep()) {
  }
  EXPECT_TRUE(std::filesystem::exists(engine->store().path(incoming->number())));
  const std::string path = engine->store().path(incoming->number());
  incoming.reset();
  EXPECT_TRUE(engine->contents().purgeStep());
  EXPECT_FALSE(std::filesystem::exists(path));
}

// The housekeeping looks for left-overs first and removes them later.
TEST_F(ContentsTest, ContentsThatFoundTheirNodeMeanwhileAreNotRemoved) {
  const NodeId id = oneFile();
  EXPECT_EQ(readThrough(id), "hello");
  const ContentId content = row(id)->content;
  engine->contents().removeUnused({content});
  EXPECT_TRUE(std::filesystem::exists(engine->store().path(content)));
  EXPECT_EQ(engine->store().used(), row(id)->blocks * 512);
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 1U);
}

TEST_F(ContentsTest, WhatIsBeingWrittenIsNoLeftOver) {
  constexpr int kFiles = 60;
  for (int i = 0; i < kFiles; ++i)
    extension->file("i:" + std::to_string(i), "f" + std::to_string(i), "contents");
  ASSERT_EQ(refresh(), 0);
  std::atomic<bool> done = false;
  std::thread purger([&] {
    while (!done)
      engine->contents().purgeStep();
  });
  for (int i = 0; i < kFiles; ++i) {
    const NodeId id = idOf("i:" + std::to_string(i));
    const auto file = engine->files().open(id).file;
    ASSERT_TRUE(file);
    EXPECT_EQ(file->truncate(0), 0);
    EXPECT_TRUE(std::filesystem::exists(engine->store().path(row(id)->content))) << i;
    engine->files().released(id);
  }
  done = true;
  purger.join();
}

TEST_F(ContentsTest, StoppingAnswersWhoeverWaits) {
  const NodeId id = oneFile();
  extension->holdFetches();
  std::promise<int> answer;
  const auto ticket =
      engine->contents().beginOpen([&](OpenAnswer result) { answer.set_value(result.error); });
  engine->contents().proceed(ticket, id, 0, OpenStep::fetch);
  ASSERT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
  engine->stop();
  EXPECT_EQ(answer.get_future().get(), EINTR);
  extension->releaseFetches();
}

}  // namespace
}  // namespace tulo::test
