#include "service/contents/Downloads.h"

#include <cerrno>
#include <filesystem>
#include <optional>

#include "service/replica/ContentRows.h"
#include "sqlite/DatabaseError.h"
#include "tests/service/support/ContentsFixture.h"
#include "tests/service/support/DescriptorShortage.h"
#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/WritingFixture.h"

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
  for (const auto& entry : std::filesystem::directory_iterator(directory.file("fp-download"))) {
    if (entry.path().string().ends_with("-original")) writeFile(entry.path(), "HELLO");
  }
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(DownloadsTest, AFileFromElsewhereIsCopiedAndStays) {
  const TemporaryDirectory elsewhere;
  writeFile(elsewhere.file("thesis.odt"), "hello");
  const NodeId id = oneFile();
  extension->scriptFetch({.path = elsewhere.file("thesis.odt")});
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(readFile(elsewhere.file("thesis.odt")), "hello");
  writeFile(elsewhere.file("thesis.odt"), "HELLO");
  EXPECT_EQ(readThrough(id), "hello");
}

TEST_F(DownloadsTest, WhatIsInTheContainerAndNotHandedOverIsRefused) {
  std::filesystem::create_directory(directory.file("fp-upload"));
  writeFile(directory.file("fp-upload/staged"), "hello");
  for (const std::string bytes : {"hello", "of another size"}) {
    writeFile(directory.file("fp-upload/staged"), bytes);
    const NodeId id = oneFile();
    for (int i = 0; i < 3; ++i)
      extension->scriptFetch({.path = directory.file("fp-upload/staged")});
    EXPECT_EQ(openFile(id).error, EIO);
    EXPECT_NE(row(id)->error.find("fp-upload/staged"), std::string::npos) << row(id)->error;
    EXPECT_EQ(readFile(directory.file("fp-upload/staged")), bytes);
  }
  EXPECT_EQ(readThrough(idOf("i:1")), "hello");
}

// A disk for the contents of so many bytes.
class SmallDiskTest : public ContentsFixture {
 protected:
  static constexpr std::int64_t kFile = 256 << 10;

  SmallDiskTest() {
    engine->store().room().setDisk(
        [this, room = &engine->store().room()] { return disk_ - room->used(); });
  }

  void file(const std::string& name, std::int64_t size = kFile) {
    extension->file("i:" + name, name, std::string(static_cast<std::size_t>(size), name[0]));
    EXPECT_EQ(refresh(), 0);
  }

  std::future<int> begin(const std::string& name) {
    auto done = std::make_shared<std::promise<int>>();
    engine->contents().fetch(idOf("i:" + name), DownloadPriority::opened,
                             [done](int error) { done->set_value(error); });
    return done->get_future();
  }

  std::int64_t disk_ = 2 * kFile + kFile / 2;
};

TEST_F(SmallDiskTest, WhatCannotFitEvictsNothing) {
  file("a");
  file("b");
  file("large", 3 * kFile);
  readThrough(idOf("i:a"));
  readThrough(idOf("i:b"));
  EXPECT_EQ(openFile(idOf("i:large")).error, ENOSPC);
  EXPECT_EQ(row(idOf("i:a"))->state, ContentState::downloaded);
  EXPECT_EQ(row(idOf("i:b"))->state, ContentState::downloaded);
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(SmallDiskTest, WhatFitsOnceOthersAreThroughWaitsForThem) {
  constexpr int kReaders = 20;
  for (int i = 0; i < kReaders; ++i)
    file(std::string(1, static_cast<char>('a' + i)));
  extension->holdFetches();
  std::vector<std::future<int>> readers;
  for (int i = 0; i < kReaders; ++i)
    readers.push_back(begin(std::string(1, static_cast<char>('a' + i))));
  ASSERT_TRUE(eventually([&] { return extension->heldFetches() == 2; }));
  extension->releaseFetches();
  for (auto& reader : readers)
    EXPECT_EQ(reader.get(), 0);
}

TEST_F(SmallDiskTest, WhatFitsOnceOthersAreClosedWaitsForThat) {
  for (const char* name : {"a", "b", "c"})
    file(name);
  OpenAnswer first = openFile(idOf("i:a"));
  const OpenAnswer second = openFile(idOf("i:b"));
  std::future<int> third = begin("c");
  engine->contents().evictStep();
  EXPECT_EQ(third.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  first.file.reset();
  engine->contents().evictStep();
  EXPECT_EQ(third.get(), 0);
  EXPECT_EQ(row(idOf("i:a"))->state, ContentState::dataless);
  EXPECT_EQ(row(idOf("i:b"))->state, ContentState::downloaded);
}

TEST_F(SmallDiskTest, WhoeverWaitsForRoomIsToldOfTheEnd) {
  for (const char* name : {"a", "b", "c"})
    file(name);
  const OpenAnswer first = openFile(idOf("i:a"));
  const OpenAnswer second = openFile(idOf("i:b"));
  std::future<int> third = begin("c");
  engine->contents().stop();
  EXPECT_EQ(third.get(), EINTR);
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

TEST_F(DownloadsTest, AShortageOfDescriptorsIsNoFailureOfTheFile) {
  const NodeId id = oneFile();
  std::optional<DescriptorShortage> shortage;
  const auto begin = [&] { shortage.emplace(0); };
  extension->scriptFetch(
      {.error = fileProviderError(NSFileProviderErrorCode::cannotSynchronize), .before = begin});
  EXPECT_EQ(openFile(id).error, EMFILE);
  shortage.reset();
  EXPECT_EQ(row(id)->error, "");
  extension->scriptFetch({.after = begin});
  EXPECT_EQ(openFile(id).error, EMFILE);
  shortage.reset();
  EXPECT_EQ(row(id)->error, "");
  EXPECT_EQ(readThrough(id), "hello");
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

// Nobody lists the folder in which the host has it, for here it is in another.
using MovedDownloadsTest = WritingFixture;

TEST_F(MovedDownloadsTest, WhatWasMovedHereIsLookedForWhereTheHostHasIt) {
  const NodeId target = makeFolder("target");
  extension->file("i:1", "a.txt", "old");
  list();
  const NodeId file = idOf("i:1");
  ASSERT_EQ(engine->edits().rename(kRootNode, "a.txt", target, "a.txt", 0), 0);
  extension->edit("i:1", "another version");
  EXPECT_EQ(readThrough(file), "another version");
}

}  // namespace
}  // namespace tulo::test
