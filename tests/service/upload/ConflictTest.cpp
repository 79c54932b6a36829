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

TEST_F(ConflictTest, TheCopyOfALongNameCanBeSentAndRenamed) {
  std::string name;
  while (name.size() + 6 <= 255)
    name += "\u00e4";
  name += ".odt";
  const NodeId id = downloaded("i:1", name, "base");
  write(id, "here");
  extension->edit("i:1", "somewhere else");
  push();
  pushAll();
  const std::string copy = row(id)->name;
  EXPECT_LE(copy.size(), 255U);
  EXPECT_TRUE(copy.ends_with(").odt"));
  EXPECT_EQ(hostContents(copy), "here");
  EXPECT_EQ(rename(copy, "short.odt"), 0);
}

TEST_F(ConflictTest, AVersionThatTheHostDeletesBeforeAnybodyHasListedItGoesHereToo) {
  extension->folder("f:1", "folder");
  const NodeId id = downloaded("i:1", "a.txt", "base");
  const NodeId folder = idOf("f:1");
  list(folder);
  write(id, "from here");
  extension->edit("i:1", "there");
  extension->change("i:1", [](ScriptedItem& item) { item.parent = "f:1"; });
  push();
  ASSERT_NE(named("a.txt", folder), kNoNode);
  extension->remove("i:1");
  list(folder);
  EXPECT_EQ(named("a.txt", folder), kNoNode);
}

}  // namespace
}  // namespace tulo::test
