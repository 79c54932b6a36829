#include "service/contents/KeptFiles.h"

#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

using KeptFilesTest = ContentsFixture;

TEST_F(KeptFilesTest, APinnedFolderIsFetchedAheadAndSoIsWhatComesLater) {
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

TEST_F(KeptFilesTest, NothingIsFetchedAheadThatNobodyAskedFor) {
  oneFile();
  EXPECT_FALSE(engine->contents().keepStep());
  EXPECT_EQ(extension->fetchCount(), 0U);
}

TEST_F(KeptFilesTest, EachFileIsAskedForOnceInARound) {
  const NodeId id = oneFile();
  engine->pins().setPinned(id, true);
  extension->holdFetches();
  EXPECT_TRUE(engine->contents().keepStep());
  EXPECT_FALSE(engine->contents().keepStep());
  // What is not here yet is asked for again in the next one.
  EXPECT_TRUE(engine->contents().keepStep());
  ASSERT_TRUE(eventually([&] { return extension->heldFetches() == 1; }));
  extension->releaseFetches();
  EXPECT_TRUE(eventually([&] { return row(id)->state == ContentState::downloaded; }));
  EXPECT_EQ(extension->fetchCount(), 1U);
}

TEST_F(KeptFilesTest, OnlySoManyWaitAheadAtATime) {
  extension->folder("f:1", "Docs");
  for (std::size_t i = 0; i < 2 * DownloadQueue::kMostAhead; ++i)
    extension->file("i:" + std::to_string(i), "f" + std::to_string(i), "hello", "f:1");
  refresh();
  refresh(idOf("f:1"));
  engine->pins().setPinned(idOf("f:1"), true);
  extension->holdFetches();
  EXPECT_FALSE(engine->contents().keepStep());
  const std::size_t most = DownloadQueue::kMostAhead + DownloadQueue::kParallelAhead;
  EXPECT_EQ(engine->contents().statistics().transfers.size(), most);
  extension->releaseFetches();
}

}  // namespace
}  // namespace tulo::test
