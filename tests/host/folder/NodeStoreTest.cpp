#include "host/folder/NodeStore.h"

#include <gmock/gmock.h>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

class NodeStoreTest : public testing::Test {
 protected:
  static Node folder(std::string ulid, std::string parent) {
    return {ulid, std::move(parent), "on-disk-" + ulid, true, {1, {}, 0, {}}};
  }
  static std::vector<std::string> ulids(const std::vector<Node>& nodes) {
    std::vector<std::string> all;
    for (const Node& node : nodes)
      all.push_back(node.ulid);
    return all;
  }

  const test::TemporaryDirectory directory_;
  IndexDatabase database_{directory_.file("state.db"), NodeStore::tables};
  NodeStore store_{database_};
};

TEST_F(NodeStoreTest, ANodeComesBackAsItWas) {
  const Node node{"u",
                  "p",
                  "caf\xE9",
                  false,
                  {UINT64_MAX, DiskTime(std::chrono::nanoseconds(-1)), 5,
                   DiskTime(std::chrono::nanoseconds(1'600'000'000'999'999'999))}};
  store_.add(node);
  for (const auto& found : {store_.node("u"), store_.child("p", "caf\xE9")}) {
    ASSERT_TRUE(found);
    EXPECT_EQ(found->ulid, "u");
    EXPECT_EQ(found->parent, "p");
    EXPECT_EQ(found->diskName, "caf\xE9");
    EXPECT_FALSE(found->isFolder);
    EXPECT_EQ(found->fingerprint.inode, UINT64_MAX);
    EXPECT_EQ(found->fingerprint.born, node.fingerprint.born);
    EXPECT_EQ(found->fingerprint.size, 5);
    EXPECT_EQ(found->fingerprint.modified, node.fingerprint.modified);
  }
  EXPECT_FALSE(store_.node("none"));
  EXPECT_FALSE(store_.child("p", "none"));
}

TEST_F(NodeStoreTest, FindsWhatIsInAFolderAndWhatHasAnInode) {
  store_.add(folder("a", ""));
  store_.add(folder("b", "a"));
  store_.add(folder("c", "a"));
  store_.setFingerprint("c", {2, {}, 0, {}});
  EXPECT_THAT(ulids(store_.children("a")), testing::ElementsAre("b", "c"));
  EXPECT_THAT(ulids(store_.nodesWithInode(1)), testing::UnorderedElementsAre("a", "b"));
  EXPECT_THAT(ulids(store_.nodesWithInode(2)), testing::ElementsAre("c"));
}

TEST_F(NodeStoreTest, KnowsWhatLiesWithinWhat) {
  store_.add(folder("a", ""));
  store_.add(folder("b", "a"));
  store_.add(folder("c", "b"));
  EXPECT_TRUE(store_.isWithin("c", "a"));
  EXPECT_TRUE(store_.isWithin("a", "a"));
  EXPECT_TRUE(store_.isWithin("c", "")) << "everything is within the top";
  EXPECT_FALSE(store_.isWithin("a", "c"));
  EXPECT_FALSE(store_.isWithin("none", "a"));
}

TEST_F(NodeStoreTest, ACircleGivesAnAnswer) {
  store_.add(folder("a", "b"));
  store_.add(folder("b", "a"));
  EXPECT_FALSE(store_.isWithin("a", "c"));
}

TEST_F(NodeStoreTest, ADisplacedNodeLeavesItsPlaceToAnotherOne) {
  store_.add(folder("a", ""));
  store_.displace("a");
  EXPECT_FALSE(store_.child("", "on-disk-a"));
  Node other = folder("b", "");
  other.diskName = "on-disk-a";
  store_.add(other);
  EXPECT_TRUE(store_.node("a"));
  store_.place("a", "b", "new");
  EXPECT_EQ(store_.child("b", "new")->ulid, "a");
}

TEST_F(NodeStoreTest, RemovesOneOrWhatIsDirectlyInAFolder) {
  store_.add(folder("a", ""));
  store_.add(folder("b", "a"));
  store_.add(folder("c", "b"));
  store_.removeChildren("a");
  EXPECT_FALSE(store_.node("b"));
  EXPECT_TRUE(store_.node("c"));
  store_.remove("c");
  EXPECT_FALSE(store_.node("c"));
  EXPECT_TRUE(store_.node("a"));
}

}  // namespace
}  // namespace tulo::host
