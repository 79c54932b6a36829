#include "service/upload/Conflict.h"

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class ConflictTest : public WritingFixture {};

TEST_F(ConflictTest, BothVersionsStayWhenBothSidesEdited) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  extension->edit("i:1", "theirs");
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "theirs");
  const Node mine = *row(id);
  EXPECT_NE(mine.name.find("a (conflicted copy of "), std::string::npos) << mine.name;
  EXPECT_EQ(hostContents(mine.name), "mine");
  EXPECT_NE(named("a.txt"), kNoNode);
  EXPECT_NE(named("a.txt"), id);
  EXPECT_EQ(engine->uploader().statistics().conflicts, 1U);
}

TEST_F(ConflictTest, OtherContentsOfTheSameSizeAreAConflict) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "here!!");
  extension->edit("i:1", "there!");
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "there!");
  EXPECT_EQ(hostContents(row(id)->name), "here!!");
  EXPECT_EQ(engine->uploader().statistics().conflicts, 1U);
}

}  // namespace
}  // namespace tulo::test
