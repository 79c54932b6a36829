#include "service/edits/RowKeeper.h"

#include <atomic>

#include "service/replica/ContentInventory.h"
#include "tests/service/support/FilesFixture.h"

namespace tulo::test {
namespace {

class RowKeeperTest : public FilesFixture {
 protected:
  // A file with bytes of which the row knows nothing.
  NodeId written(const std::string& name, const std::string& bytes) {
    const NodeId id = makeFile(name, "");
    const auto file = all.get(id);
    EXPECT_EQ(file->open(), 0);
    EXPECT_EQ(put(*file, bytes, 0), static_cast<ssize_t>(bytes.size()));
    return id;
  }

  // Names that unsent contents are recovered under.
  bool isNamed(const std::string& name) {
    for (const inventory::NamedContents& named : inventory::named(engine->store())) {
      if (named.name == name) return true;
    }
    return false;
  }

  const FileParts these = parts();
  WritableFiles all{these};
  std::atomic<int> settled = 0;
  RowKeeper keeper{all, engine->store(), [this] { ++settled; }};
};

TEST_F(RowKeeperTest, BringsARowUpToDateByItself) {
  const NodeId id = written("a", "hello");
  keeper.settleLater(id);
  EXPECT_TRUE(eventually([&] { return row(id)->size == 5; }));
  EXPECT_TRUE(eventually([&] { return settled > 0; }));
}

TEST_F(RowKeeperTest, WhoeverCannotWaitHasItDoneAtOnce) {
  const NodeId one = written("one", "1");
  const NodeId two = written("two", "22");
  keeper.settleLater(one);
  keeper.settleLater(two);
  keeper.stop();
  EXPECT_EQ(row(one)->size, 1);
  EXPECT_EQ(row(two)->size, 2);
  EXPECT_GE(settled, 1);
  EXPECT_EQ(all.find(one), nullptr);
}

TEST_F(RowKeeperTest, AfterItsEndNothingIsDoneUntilSomebodyCatchesUp) {
  keeper.stop();
  const NodeId id = written("a", "hello");
  keeper.settleLater(id);
  EXPECT_EQ(row(id)->size, 0);
  keeper.catchUp();
  EXPECT_EQ(row(id)->size, 5);
  EXPECT_EQ(settled, 1);
}

TEST_F(RowKeeperTest, WhatIsUpToDateIsLeftAlone) {
  const NodeId id = makeFile("a", "hello");
  keeper.stop();
  keeper.settleLater(id);
  all.get(id);
  keeper.settleLater(id);
  keeper.catchUp();
  EXPECT_EQ(settled, 0);
}

TEST_F(RowKeeperTest, ManyAreNotGatheredForLong) {
  keeper.stop();
  constexpr int kMost = 48;
  std::vector<NodeId> ids;
  for (int i = 0; i < kMost; ++i)
    ids.push_back(written("file " + std::to_string(i), "x"));
  for (int i = 0; i + 1 < kMost; ++i)
    keeper.settleLater(ids[static_cast<std::size_t>(i)]);
  EXPECT_EQ(row(ids.front())->size, 0);
  keeper.settleLater(ids.back());
  EXPECT_EQ(row(ids.front())->size, 1);
  EXPECT_EQ(row(ids.back())->size, 1);
}

TEST_F(RowKeeperTest, NotesTheNameThatContentsAreRecoveredUnder) {
  const NodeId id = makeFile("before", "x");
  keeper.nameLater(row(id)->content, "after");
  keeper.catchUp();
  EXPECT_TRUE(isNamed("after"));
  EXPECT_FALSE(isNamed("before"));
}

TEST_F(RowKeeperTest, ForgetsANameThatWasNotNotedYet) {
  const NodeId id = makeFile("before", "x");
  keeper.stop();
  keeper.nameLater(row(id)->content, "after");
  keeper.forgetName(row(id)->content);
  keeper.catchUp();
  EXPECT_FALSE(isNamed("after"));
  EXPECT_FALSE(isNamed("before"));
}

TEST_F(RowKeeperTest, ContentsThatAreGoneNeedNoName) {
  keeper.stop();
  const NodeId id = written("a", "hello");
  keeper.nameLater(ContentId(999'999), "gone");
  keeper.settleLater(id);
  keeper.catchUp();
  EXPECT_EQ(row(id)->size, 5);
}

}  // namespace
}  // namespace tulo::test
