#include "service/contents/CacheEviction.h"

#include <cerrno>
#include <filesystem>

#include "tests/service/support/ContentsFixture.h"
#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

class CacheEvictionTest : public ContentsFixture {
 protected:
  std::size_t filesIn(const std::string& below) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(below)) {
      if (entry.is_regular_file()) ++count;
    }
    return count;
  }
};

TEST_F(CacheEvictionTest, EvictionGivesTheRoomBackAndTheFileComesAgain) {
  const NodeId id = oneFile();
  readThrough(id);
  EXPECT_EQ(engine->contents().evict(id), 0);
  EXPECT_EQ(row(id)->state, ContentState::dataless);
  EXPECT_EQ(row(id)->blocks, 0);
  EXPECT_EQ(engine->store().room().used(), 0);
  EXPECT_EQ(filesIn(options.stateDirectory + "/contents"), 0U);
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(CacheEvictionTest, WhatIsOpenOrPinnedIsNotEvicted) {
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

TEST_F(CacheEvictionTest, TheSizeLimitEvictsTheLeastRecentlyUsedFirst) {
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
  EXPECT_LE(engine->store().room().used(), options.limits.size);
}

TEST_F(CacheEvictionTest, AFullDiskIsReportedBeforeItIsFull) {
  options.limits.keepFreeBytes = std::int64_t{1} << 60;
  reopen();
  const NodeId id = oneFile();
  EXPECT_EQ(openFile(id).error, ENOSPC);
  EXPECT_EQ(extension->fetchCount(), 0U);
}

TEST_F(CacheEvictionTest, WhatIsGoneHasNothingToEvict) {
  const NodeId id = oneFile();
  EXPECT_EQ(engine->contents().evict(id), 0);
  EXPECT_EQ(engine->contents().evict(kRootNode), 0);
  EXPECT_EQ(engine->contents().evict(NodeId(4711)), ESTALE);
  EXPECT_EQ(engine->contents().statistics().evicted, 0U);
}

TEST_F(CacheEvictionTest, TheHousekeepingBringsTheCacheBackToItsSize) {
  const NodeId id = oneFile(std::string(8192, 'x'));
  ASSERT_EQ(openFile(id).error, 0);
  EXPECT_FALSE(engine->contents().evictStep());
  options.limits.size = 4096;
  reopen();
  EXPECT_TRUE(engine->contents().evictStep());
  EXPECT_EQ(row(id)->state, ContentState::dataless);
  EXPECT_EQ(engine->contents().statistics().evicted, 1U);
  EXPECT_FALSE(engine->contents().evictStep());
}

TEST_F(CacheEvictionTest, HoweverManyAreOpenTheRestIsEvicted) {
  constexpr int kFiles = 80;
  constexpr int kOpen = 70;
  for (int i = 0; i < kFiles; ++i)
    extension->file("i:" + std::to_string(i), std::to_string(i), std::string(8192, 'x'));
  refresh();
  std::vector<OpenAnswer> open;
  for (int i = 0; i < kFiles; ++i) {
    const NodeId id = idOf("i:" + std::to_string(i));
    readThrough(id);
    if (i < kOpen) open.push_back(openFile(id));
    engine->contents().saveUseStep();
    engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
      writer.setLastUsed(id, atSecond(i + 1));
    });
  }
  const CacheLimits limits{kOpen * 8192, 0, 0};
  OpenFiles& openFiles = engine->openFiles();
  ContentStore store(options.stateDirectory, directory.path(), limits);
  store.room().setUsed(engine->store().room().used());
  RecentUse use(engine->replica());
  LeftOvers leftOvers(engine->replica(), openFiles, store);
  CacheEviction eviction(engine->replica(), openFiles, engine->notifier(), store, use, leftOvers);
  while (eviction.step()) {
  }
  EXPECT_LE(store.room().used(), limits.size);
  for (int i = 0; i < kFiles; ++i) {
    const auto expected = i < kOpen ? ContentState::downloaded : ContentState::dataless;
    EXPECT_EQ(row(idOf("i:" + std::to_string(i)))->state, expected) << i;
  }
}

}  // namespace
}  // namespace tulo::test
