#include "service/Engine.h"

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class EngineTest : public WritingFixture {};

TEST_F(EngineTest, WhatIsChangedGoesUpByItselfOnceItHasBegun) {
  options.clock = systemClock;
  options.quiet = milliseconds::zero();
  reopen();
  engine->start();
  makeFile("a.txt", "hello");
  EXPECT_TRUE(eventually([&] { return counts().pending == 0; }));
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(EngineTest, NothingGoesUpWhereNothingMayBeChanged) {
  makeFile("a.txt", "hello");
  options.readWrite = false;
  options.clock = systemClock;
  reopen();
  engine->start();
  engine->poke();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(counts().pending, 1);
}

TEST_F(EngineTest, EndingWritesDownWhatWasNotInItsRowYet) {
  const NodeId id = makeFile("a.txt", "");
  const auto file = open(id);
  ASSERT_EQ(file->write("hello", 5, 0), 5);
  engine->files().settleLater(id);
  engine->stop();
  EXPECT_EQ(row(id)->size, 5);
  engine->stop();
}

}  // namespace
}  // namespace tulo::test
