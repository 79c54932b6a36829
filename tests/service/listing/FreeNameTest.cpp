#include "service/listing/FreeName.h"

#include <set>
#include <string>

#include "tests/service/support/EngineFixture.h"

namespace tulo::test {
namespace {

class FreeNameTest : public EngineFixture {};

TEST_F(FreeNameTest, NamesThatAFolderCannotHoldAreSpelledOut) {
  extension->file("i:1", "a/b", "x");
  extension->file("i:2", "..", "y");
  refresh();
  EXPECT_EQ(names().count("a%2Fb"), 1U);
  EXPECT_EQ(names().count("%2E%2E"), 1U);
  EXPECT_EQ(node("i:1")->filename, "a/b");
}

TEST_F(FreeNameTest, ANameThatIsTakenGetsAMarkAndATakenMarkAnother) {
  ItemRecord item;
  item.identifier = "i:1";
  item.filename = "a.txt";
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    std::set<std::string> given;
    for (int i = 0; i < 3; ++i) {
      Node node;
      node.parent = kRootNode;
      node.name = freeName(writer, kRootNode, item);
      node.filename = item.filename;
      EXPECT_TRUE(given.insert(node.name).second) << node.name;
      EXPECT_NE(writer.insert(node), kNoNode);
    }
    EXPECT_TRUE(given.contains("a.txt"));
    EXPECT_EQ(freeName(writer, NodeId(4711), item), "a.txt");
  });
}

TEST_F(FreeNameTest, ANameThatLooksLikeAnotherOnesSpellingStaysApartFromIt) {
  extension->file("i:1", "100%.txt", "x");
  extension->file("i:2", "100%25.txt", "y");
  extension->file("i:3", "a/b", "x");
  extension->file("i:4", "a%2Fb", "y");
  for (int i = 0; i < 3; ++i) {
    commit();
    refresh();
    EXPECT_EQ(names().size(), 4U);
    EXPECT_EQ(names()["100%.txt"], idOf("i:1"));
    EXPECT_EQ(names()["100%25.txt"], idOf("i:2"));
  }
}

}  // namespace
}  // namespace tulo::test
