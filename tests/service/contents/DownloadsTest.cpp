#include "service/contents/Downloads.h"

#include <cerrno>
#include <filesystem>

#include "service/replica/ContentRows.h"
#include "sqlite/DatabaseError.h"
#include "tests/service/support/ContentsFixture.h"
#include "tests/service/support/ReplicaSql.h"

namespace tulo::test {
namespace {

using platform::NSFileProviderErrorCode;

using DownloadsTest = ContentsFixture;

TEST_F(DownloadsTest, AFileIsFetchedOnceAndThenHere) {
  const NodeId id = oneFile();
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 1U);
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_GT(row(id)->blocks, 0);
  EXPECT_EQ(engine->store().room().used(), row(id)->blocks * 512);
  EXPECT_TRUE(delivered().has(attributesChanged(id)));
}

TEST_F(DownloadsTest, ManyOpenersShareOneFetch) {
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

TEST_F(DownloadsTest, AnErrorReachesEveryWaiterAndTheNextOpenTriesAgain) {
  const NodeId id = oneFile();
  extension->scriptFetch({.error = fileProviderError(NSFileProviderErrorCode::serverUnreachable)});
  EXPECT_EQ(openFile(id).error, EHOSTDOWN);
  EXPECT_EQ(row(id)->error, "");
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(DownloadsTest, AnErrorThatWaitingDoesNotHelpIsShownUntilItGoesWell) {
  const NodeId id = oneFile();
  extension->scriptFetch({.error = fileProviderError(NSFileProviderErrorCode::cannotSynchronize)});
  EXPECT_EQ(openFile(id).error, EIO);
  EXPECT_NE(row(id)->error, "");
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(row(id)->error, "");
}

TEST_F(DownloadsTest, NonsenseIsNeverShownAsContents) {
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

TEST_F(DownloadsTest, ASlipIsRepairedByFetchingAgain) {
  const NodeId id = oneFile();
  extension->scriptFetch({.bytes = "hel"});
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(DownloadsTest, AVersionThatMovesOnDuringTheFetchIsFetchedAgain) {
  const NodeId id = oneFile("old!!");
  // The bytes are those of the old version; the item that comes with them is the new one.
  extension->scriptFetch({.bytes = "old!!", .before = [this] { extension->edit("i:1", "new!!"); }});
  EXPECT_EQ(readThrough(id), "new!!");
  EXPECT_EQ(row(id)->contentVersion, "2");
}

TEST_F(DownloadsTest, AFileWithoutItsItemIsTakenIfItFits) {
  const NodeId id = oneFile();
  extension->scriptFetch({.noItem = true});
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(DownloadsTest, AFileThatTheHostStillHoldsUnderAnotherNameIsCopied) {
  const NodeId id = oneFile();
  extension->scriptFetch({.hardLink = true});
  EXPECT_EQ(readThrough(id), "hello");
  for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
    if (entry.path().string().ends_with("-original")) writeFile(entry.path(), "HELLO");
  }
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(DownloadsTest, AFileThatIsNotTakenIsRemovedOnlyFromTheSharedDirectory) {
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

TEST_F(DownloadsTest, ANodeThatIsGoneOrUnknownToTheHostIsStale) {
  std::promise<int> gone;
  engine->contents().fetch(NodeId(4711), DownloadPriority::opened,
                           [&](int error) { gone.set_value(error); });
  EXPECT_EQ(gone.get_future().get(), ESTALE);
  EXPECT_EQ(engine->contents().statistics().failed, 1U);
}

TEST_F(DownloadsTest, WhatIsHereAlreadyIsNotFetched) {
  const NodeId id = oneFile();
  EXPECT_EQ(readThrough(id), "hello");
  std::promise<int> fetched;
  engine->contents().fetch(id, DownloadPriority::opened,
                           [&](int error) { fetched.set_value(error); });
  EXPECT_EQ(fetched.get_future().get(), 0);
  EXPECT_EQ(extension->fetchCount(), 1U);
}

// A database that may not grow looks like a disk without room.
TEST_F(DownloadsTest, AReplicaWithoutRoomIsToldAsSuch) {
  const NodeId id = oneFile();
  engine->replica().write(Durability::eventual,
                          [](ReplicaWriter& writer) { runSql(writer, "PRAGMA max_page_count=1"); });
  const auto fill = [&] {
    engine->replica().write(Durability::eventual,
                            [&](ReplicaWriter& writer) { contentRows::reserve(writer, id); });
  };
  EXPECT_THROW(for (int i = 0; i < 10000; ++i) fill(), sqlite::DatabaseError);
  EXPECT_EQ(openFile(id).error, ENOSPC);
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    runSql(writer, "PRAGMA max_page_count=1000000");
  });
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(DownloadsTest, SaysWhatIsOnItsWay) {
  const NodeId id = oneFile();
  extension->holdFetches();
  Waiting waiting = waitForFetch(id);
  ASSERT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
  const std::vector<Transfer> transfers = engine->contents().statistics().transfers;
  ASSERT_EQ(transfers.size(), 1U);
  EXPECT_EQ(transfers[0].node, id);
  EXPECT_EQ(transfers[0].size, 5);
  EXPECT_TRUE(transfers[0].active);
  EXPECT_FALSE(transfers[0].ahead);
  EXPECT_EQ(engine->store().room().reserved(), 5);
  extension->releaseFetches();
  EXPECT_EQ(waiting.error.get(), 0);
  EXPECT_EQ(engine->contents().statistics().transfers.size(), 0U);
  EXPECT_EQ(engine->store().room().reserved(), 0);
}

}  // namespace
}  // namespace tulo::test
