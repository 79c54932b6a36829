#include "service/contents/Openers.h"

#include <unistd.h>

#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

using platform::NSFileProviderErrorCode;

class OpenersTest : public ContentsFixture {};

TEST_F(OpenersTest, NobodyElseWaitsForTheProviderToTakeARequest) {
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

TEST_F(OpenersTest, AWaitingOpenerMayGiveUpWhileTheFetchRunsOn) {
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

TEST_F(OpenersTest, AnInterruptBeforeTheOpenerIsArmedIsNotLost) {
  const NodeId id = oneFile();
  std::promise<int> gaveUp;
  const auto ticket =
      engine->contents().beginOpen([&](OpenAnswer answer) { gaveUp.set_value(answer.error); });
  engine->contents().cancel(ticket);
  engine->contents().proceed(ticket, id, 0, OpenStep::fetch);
  EXPECT_EQ(gaveUp.get_future().get(), EINTR);
  EXPECT_EQ(extension->fetchCount(), 0U);
}

TEST_F(OpenersTest, WhatIsEvictedBetweenItsFetchAndItsOpenIsFetchedAgain) {
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

TEST_F(OpenersTest, StoppingAnswersWhoeverWaits) {
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

class LargeFolderTest : public OpenersTest {
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

TEST_F(OpenersTest, AnOpenerWhoGivesUpIsNotAnsweredAgain) {
  const NodeId id = oneFile();
  extension->holdFetches();
  int answers = 0;
  const auto ticket = engine->contents().beginOpen([&](const OpenAnswer&) { ++answers; });
  engine->contents().proceed(ticket, id, 0, OpenStep::fetch);
  engine->contents().cancel(ticket);
  extension->releaseFetches();
  EXPECT_TRUE(eventually([&] { return row(id)->state == ContentState::downloaded; }));
  engine->stop();
  EXPECT_EQ(answers, 1);
}

TEST_F(OpenersTest, WhatIsHereOpensAlthoughTheHostDoesNotAnswer) {
  const NodeId id = oneFile();
  readThrough(id);
  extension->setListingError(fileProviderError(NSFileProviderErrorCode::serverUnreachable));
  commit();
  EXPECT_EQ(engine->contents().openNow(id).step, OpenStep::verify);
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 1U);
}

TEST_F(OpenersTest, AVersionThatIsNotKnownYetIsFoundBeforeTheFileIsOpen) {
  const NodeId id = oneFile();
  readThrough(id);
  extension->edit("i:1", "another");
  commit();
  EXPECT_EQ(readThrough(id), "another");
}

TEST_F(OpenersTest, WhoComesAfterTheEndIsToldSo) {
  const NodeId id = oneFile();
  engine->stop();
  Waiting waiting = waitForFetch(id);
  EXPECT_EQ(waiting.error.get(), EINTR);
  EXPECT_EQ(extension->fetchCount(), 0U);
}

TEST_F(OpenersTest, AProgramOnTheListCausesNoDownload) {
  const NodeId id = oneFile();
  options.noDownloadList = directory.file("no-download");
  writeFile(options.noDownloadList, "*\n");
  reopen();
  refresh();
  EXPECT_EQ(openFile(id, ::getpid()).error, EACCES);
  EXPECT_EQ(engine->contents().statistics().denied, 1U);
  EXPECT_EQ(extension->fetchCount(), 0U);
  EXPECT_EQ(openFile(id).error, 0);
  EXPECT_EQ(openFile(id, ::getpid()).error, 0);
}

}  // namespace
}  // namespace tulo::test
