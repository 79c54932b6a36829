#include "service/contents/LeftOvers.h"

#include <atomic>
#include <filesystem>
#include <optional>
#include <thread>

#include "service/replica/ContentRows.h"
#include "tests/service/support/ContentsFixture.h"
#include "tests/service/support/ReplicaSql.h"

namespace tulo::test {
namespace {

using LeftOversTest = ContentsFixture;

TEST_F(LeftOversTest, ContentsOnTheirWayAreNoLeftOvers) {
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
TEST_F(LeftOversTest, ContentsThatFoundTheirNodeMeanwhileAreNotRemoved) {
  const NodeId id = oneFile();
  EXPECT_EQ(readThrough(id), "hello");
  const ContentId content = row(id)->content;
  engine->contents().removeUnused({content});
  EXPECT_TRUE(std::filesystem::exists(engine->store().path(content)));
  EXPECT_EQ(engine->store().room().used(), row(id)->blocks * 512);
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 1U);
}

TEST_F(LeftOversTest, WhatIsBeingWrittenIsNoLeftOver) {
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

TEST_F(LeftOversTest, ContentsThatNoNodeHasAreRemoved) {
  const NodeId id = oneFile();
  readThrough(id);
  const std::string path = engine->store().path(row(id)->content);
  extension->edit("i:1", "another");
  commit();
  refresh();
  EXPECT_TRUE(engine->contents().purgeStep());
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(engine->store().room().used(), 0);
}

TEST_F(LeftOversTest, ContentsThatAreOpenStayUntilTheyAreClosed) {
  const NodeId id = oneFile();
  readThrough(id);
  const std::string path = engine->store().path(row(id)->content);
  {
    const OpenAnswer open = openFile(id);
    extension->edit("i:1", "another");
    commit();
    refresh();
    engine->contents().purgeStep();
    EXPECT_TRUE(std::filesystem::exists(path));
  }
  EXPECT_TRUE(engine->contents().purgeStep());
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(LeftOversTest, ANodeThatLeftTheTreeIsRemovedAMinuteLater) {
  const NodeId id = oneFile();
  extension->file("i:2", "b.txt", "");
  extension->remove("i:1");
  commit();
  refresh();
  engine->contents().purgeStep();
  EXPECT_TRUE(row(id));
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    runSql(writer, "UPDATE node SET detached=detached-60 WHERE detached>0");
  });
  EXPECT_TRUE(engine->contents().purgeStep());
  EXPECT_FALSE(row(id));
}

TEST_F(LeftOversTest, HoweverManyAreOpenTheRestIsRemoved) {
  constexpr int kOpen = 70;
  std::vector<OpenAnswer> open;
  for (int i = 0; i <= kOpen; ++i)
    extension->file("i:" + std::to_string(i), std::to_string(i), "x");
  refresh();
  for (int i = 0; i <= kOpen; ++i) {
    const NodeId id = idOf("i:" + std::to_string(i));
    readThrough(id);
    if (i < kOpen) open.push_back(openFile(id));
  }
  const NodeId last = idOf("i:" + std::to_string(kOpen));
  const std::string path = engine->store().path(row(last)->content);
  extension->file("i:kept", "kept", "x");
  for (int i = 0; i <= kOpen; ++i)
    extension->remove("i:" + std::to_string(i));
  commit();
  refresh();
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    runSql(writer, "UPDATE node SET detached=detached-60 WHERE detached>0");
    runSql(writer, "UPDATE content SET used=0");
  });
  while (engine->contents().purgeStep()) {
  }
  EXPECT_FALSE(row(last));
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
}  // namespace tulo::test
