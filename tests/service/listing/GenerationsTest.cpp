#include "service/listing/Generations.h"

#include <chrono>
#include <filesystem>

#include "tests/service/support/EngineFixture.h"

namespace tulo::test {
namespace {

class GenerationsTest : public EngineFixture {};

TEST_F(GenerationsTest, ARestartTrustsTheLastRunOnlyIfTheSourceLooksTheSame) {
  extension->file("i:1", "a.txt", "hello");
  // Times tell commits apart only once the file is no longer brand-new.
  const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  std::filesystem::last_write_time(directory.file("state.db"), old);
  engine->sync().checkSource();
  refresh();
  reopen();
  EXPECT_EQ(engine->sync().freshness(kRootNode, row(kRootNode)->listed), Freshness::current);
  engine.reset();
  commit();
  open();
  EXPECT_EQ(engine->sync().freshness(kRootNode, row(kRootNode)->listed), Freshness::unknown);
}

TEST_F(GenerationsTest, ACommitIsANewGenerationAndIsToldOnce) {
  const std::uint64_t before = engine->sync().generation();
  EXPECT_FALSE(engine->sync().checkSource());
  commit();
  EXPECT_EQ(engine->sync().generation(), before + 1);
  EXPECT_FALSE(engine->sync().checkSource());
}

TEST_F(GenerationsTest, AFolderIsCurrentOnceListedOlderAfterACommitAndUnknownBefore) {
  EXPECT_EQ(engine->sync().freshness(kRootNode, 0), Freshness::unknown);
  refresh();
  EXPECT_EQ(engine->sync().freshness(kRootNode, 0), Freshness::current);
  commit();
  EXPECT_EQ(engine->sync().freshness(kRootNode, 0), Freshness::older);
}

TEST_F(GenerationsTest, WhatWasWrittenJustNowCannotBeRecognisedAgain) {
  Generations generations(engine->replica(), engine->source(), engine->folders());
  writeFile(directory.file("state.db"), "of this moment");
  generations.check();
  EXPECT_TRUE(generations.stamp().fingerprint.empty());
  const auto old = std::filesystem::file_time_type::clock::now() - std::chrono::hours(1);
  std::filesystem::last_write_time(directory.file("state.db"), old);
  EXPECT_TRUE(generations.check());
  EXPECT_FALSE(generations.stamp().fingerprint.empty());
  EXPECT_EQ(generations.stamp().generation, generations.current());
}

TEST_F(GenerationsTest, CallsWhoeverWantsToKnowOfACommit) {
  Generations generations(engine->replica(), engine->source(), engine->folders());
  int told = 0;
  generations.whenCommitted([&] { ++told; });
  generations.check();
  EXPECT_EQ(told, 0);
  writeFile(directory.file("state.db"), "something else");
  generations.check();
  EXPECT_EQ(told, 1);
}

}  // namespace
}  // namespace tulo::test
