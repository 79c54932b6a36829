#include "service/contents/Pins.h"

#include <cerrno>

#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

class PinsTest : public ContentsFixture {
 protected:
  PinsTest() {
    extension->folder("f:1", "Docs");
    extension->folder("f:2", "Old", "f:1");
    extension->file("i:1", "a.txt", "hello", "f:2");
    refresh();
    refresh(idOf("f:1"));
    refresh(idOf("f:2"));
  }

  int setPinned(const std::string& identifier, bool pinned) {
    return engine->pins().setPinned(idOf(identifier), pinned);
  }
  bool isSwept(const std::string& identifier) {
    const auto stale = engine->folders().olderThan(engine->sync().generation());
    return std::find(stale.begin(), stale.end(), idOf(identifier)) != stale.end();
  }
  bool isKept(const std::string& identifier) { return node(identifier)->kept; }
};

TEST_F(PinsTest, AFolderPinsAllThatIsInIt) {
  EXPECT_EQ(setPinned("f:1", true), 0);
  EXPECT_TRUE(node("f:1")->pinned);
  EXPECT_TRUE(isKept("f:2"));
  EXPECT_TRUE(isKept("i:1"));
  EXPECT_FALSE(node("i:1")->pinned);
  EXPECT_FALSE(isKept(ScriptedExtension::root()));
}

TEST_F(PinsTest, WhatIsPinnedItselfStaysWhenItsFolderIsNot) {
  setPinned("f:1", true);
  setPinned("i:1", true);
  EXPECT_EQ(setPinned("f:1", false), 0);
  EXPECT_FALSE(isKept("f:1"));
  EXPECT_FALSE(isKept("f:2"));
  EXPECT_TRUE(isKept("i:1"));
}

TEST_F(PinsTest, WhatIsInAPinnedFolderStaysKeptWithoutAPinOfItsOwn) {
  setPinned("f:1", true);
  setPinned("i:1", true);
  EXPECT_EQ(setPinned("i:1", false), 0);
  EXPECT_TRUE(isKept("i:1"));
}

TEST_F(PinsTest, PinnedFoldersAreKeptUpToDateAlsoInTheNextRun) {
  setPinned("f:1", true);
  commit();
  EXPECT_TRUE(isSwept("f:1"));
  EXPECT_TRUE(isSwept("f:2"));
  reopen();
  EXPECT_TRUE(isSwept("f:2"));
  setPinned("f:1", false);
  EXPECT_FALSE(isSwept("f:2"));
}

TEST_F(PinsTest, WhatIsNotThereCannotBePinned) {
  EXPECT_EQ(engine->pins().setPinned(NodeId(4711), true), ENOENT);
}

}  // namespace
}  // namespace tulo::test
