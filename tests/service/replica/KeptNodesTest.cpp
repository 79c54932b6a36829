#include "service/replica/KeptNodes.h"

#include "service/replica/NodeContents.h"
#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class KeptNodesTest : public ReplicaFixture {
 protected:
  void keep(NodeId id, bool kept = true) {
    write([&](ReplicaWriter& writer) { keptNodes::set(writer, id, kept); });
  }

  void keepBelow(NodeId id, bool kept) {
    write([&](ReplicaWriter& writer) { keptNodes::setBelow(writer, id, kept); });
  }

  std::vector<NodeId> missing(NodeId after = kNoNode, std::int64_t limit = 100) {
    return read(
        [&](ReplicaReader& reader) { return keptNodes::missingFiles(reader, after, limit); });
  }
};

TEST_F(KeptNodesTest, AFolderPassesItOnToAllBelow) {
  const NodeId folder = addFolder("folder");
  const NodeId inner = addFolder("inner", folder);
  const NodeId file = add("file", "i:1", inner);
  const NodeId beside = add("beside", "i:2");
  keepBelow(folder, true);
  EXPECT_TRUE(row(inner)->kept);
  EXPECT_TRUE(row(file)->kept);
  EXPECT_FALSE(row(beside)->kept);
  keepBelow(folder, false);
  EXPECT_FALSE(row(file)->kept);
}

TEST_F(KeptNodesTest, WhatIsPinnedItselfStaysKeptWithAllBelow) {
  const NodeId folder = addFolder("folder");
  const NodeId pinned = addFolder("pinned", folder);
  const NodeId file = add("file", "i:1", pinned);
  keepBelow(folder, true);
  write([&](ReplicaWriter& writer) { keptNodes::setPinned(writer, pinned, true); });
  EXPECT_TRUE(row(pinned)->pinned);
  keepBelow(folder, false);
  EXPECT_TRUE(row(pinned)->kept);
  EXPECT_TRUE(row(file)->kept);
}

TEST_F(KeptNodesTest, FoldersThatWereNeverListedAreToldApart) {
  const NodeId listed = addFolder("listed");
  const NodeId fresh = addFolder("fresh");
  addFolder("not kept");
  keep(listed);
  keep(fresh);
  write([&](ReplicaWriter& writer) { writer.setListed(listed, 1, ""); });
  EXPECT_EQ(read([](ReplicaReader& reader) { return keptNodes::folders(reader); }),
            (std::vector<NodeId>{listed, fresh}));
  EXPECT_EQ(read([](ReplicaReader& reader) { return keptNodes::unlistedFolders(reader, 100); }),
            std::vector<NodeId>{fresh});
}

TEST_F(KeptNodesTest, FilesWithoutContentsAreMissing) {
  const NodeId one = add("one", "i:1");
  const NodeId two = add("two", "i:2");
  const NodeId here = add("here", "i:3");
  add("not kept", "i:4");
  for (NodeId id : {one, two, here})
    keep(id);
  write([&](ReplicaWriter& writer) { nodeContents::adopt(writer, here, ContentId(1), 8); });
  EXPECT_EQ(missing(), (std::vector<NodeId>{one, two}));
  EXPECT_EQ(missing(one), std::vector<NodeId>{two});
  EXPECT_EQ(missing(kNoNode, 1), std::vector<NodeId>{one});
}

TEST_F(KeptNodesTest, FoldersThatAreInOneAnotherAreKeptOnce) {
  const NodeId first = addFolder("first");
  const NodeId second = addFolder("second", first);
  write([&](ReplicaWriter& writer) {
    Node node = *writer.node(first);
    node.parent = second;
    writer.update(node);
    keptNodes::setBelow(writer, first, true);
  });
  EXPECT_TRUE(row(second)->kept);
}

}  // namespace
}  // namespace tulo::test
