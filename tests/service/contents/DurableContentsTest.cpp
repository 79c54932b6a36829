#include "service/contents/DurableContents.h"

#include <filesystem>

#include "service/replica/Meta.h"
#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

using DurableContentsTest = ContentsFixture;

TEST_F(DurableContentsTest, UnsyncedContentsAreNotTrustedAfterAnotherBoot) {
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

TEST_F(DurableContentsTest, WhatWasChangedHereSurvivesAnotherBootWithoutHavingBeenSynced) {
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

TEST_F(DurableContentsTest, EachOfTheContentsIsForcedOnce) {
  readThrough(oneFile());
  EXPECT_TRUE(engine->contents().durableStep());
  EXPECT_FALSE(engine->contents().durableStep());
}

TEST_F(DurableContentsTest, WhatTheCacheHoldsIsCountedAtTheStart) {
  const NodeId id = oneFile();
  readThrough(id);
  const std::int64_t used = engine->store().room().used();
  EXPECT_GT(used, 0);
  reopen();
  EXPECT_EQ(engine->store().room().used(), used);
}

}  // namespace
}  // namespace tulo::test
