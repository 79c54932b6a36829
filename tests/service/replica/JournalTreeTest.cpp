#include "service/replica/JournalTree.h"

#include <algorithm>

#include "service/replica/Journal.h"
#include "service/replica/NodeContents.h"
#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class JournalTreeTest : public ReplicaFixture {
 protected:
  void begin(NodeId id, int due = 0) {
    write([&](ReplicaWriter& writer) {
      journal::put(writer, journal::begin(writer, *writer.node(id), WallTime(milliseconds(due))));
    });
  }

  std::optional<Change> find(NodeId id) {
    return read([&](ReplicaReader& reader) { return journal::find(reader, id); });
  }
};

TEST_F(JournalTreeTest, KnowsWhetherAnythingBelowIsToBeSent) {
  const NodeId folder = addFolder("folder");
  const NodeId inner = addFolder("inner", folder);
  const NodeId file = add("file", "i:1", inner);
  const auto any = [&] {
    return read([&](ReplicaReader& reader) { return journal::anyBelow(reader, folder); });
  };
  EXPECT_FALSE(any());
  begin(file);
  EXPECT_TRUE(any());
  write([&](ReplicaWriter& writer) { journal::erase(writer, file); });
  EXPECT_FALSE(any());
  add("new", "", inner);
  EXPECT_TRUE(any());
}

TEST_F(JournalTreeTest, KnowsInWhichFolderTheHostHasWhatWasMovedOrDeletedHere) {
  const NodeId before = addFolder("before");
  const NodeId now = addFolder("now");
  const NodeId file = add("file", "i:1", before);
  const auto atHost = [&] {
    return read([&](ReplicaReader& reader) { return journal::folderAtHost(reader, file); });
  };
  EXPECT_EQ(atHost(), before);
  begin(file);
  write([&](ReplicaWriter& writer) {
    Node node = *writer.node(file);
    node.parent = now;
    writer.update(node);
  });
  EXPECT_EQ(atHost(), before);
  write([&](ReplicaWriter& writer) { writer.takeOut(file); });
  EXPECT_EQ(atHost(), before);
}

// Two folders that are in one another, as no listing may leave them, with a file that is at the
// host.
struct Circle {
  NodeId first;
  NodeId second;
  NodeId file;
};

class CircleTest : public JournalTreeTest {
 protected:
  CircleTest() {
    const NodeId first = addFolder("first");
    const NodeId second = addFolder("second", first);
    circle = {first, second, add("file", "i:1", second)};
    write([&](ReplicaWriter& writer) {
      Node node = *writer.node(first);
      node.parent = second;
      writer.update(node);
    });
  }

  Circle circle{};
};

TEST_F(CircleTest, WhatIsBelowIsFoundOnce) {
  const auto any = [&] {
    return read([&](ReplicaReader& reader) { return journal::anyBelow(reader, circle.first); });
  };
  EXPECT_FALSE(any());
  begin(circle.file);
  EXPECT_TRUE(any());
}

TEST_F(CircleTest, ChangedContentsAreFoundOnce) {
  const auto changed = [&] {
    return read(
        [&](ReplicaReader& reader) { return journal::changedContentsBelow(reader, circle.first); });
  };
  EXPECT_TRUE(changed().empty());
  begin(circle.file);
  write([&](ReplicaWriter& writer) { nodeContents::markDirty(writer, circle.file); });
  EXPECT_EQ(changed(), std::vector<NodeId>{circle.file});
}

TEST_F(CircleTest, ChangesWithinAreFoundOnce) {
  begin(circle.file);
  begin(circle.second);
  for (const NodeId folder : {circle.first, circle.second}) {
    auto found = read([&](ReplicaReader& reader) { return journal::within(reader, folder); });
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (std::vector<NodeId>{circle.second, circle.file}));
  }
}

TEST_F(CircleTest, WhatStaysHereIsNamedOnce) {
  const auto paths = [&] {
    return read(
        [&](ReplicaReader& reader) { return journal::localPaths(reader, circle.first, 9); });
  };
  EXPECT_TRUE(paths().empty());
  add("local", "", circle.second);
  EXPECT_EQ(paths(), std::vector<std::string>{"second/local"});
}

TEST_F(JournalTreeTest, ChangesWithinAFolderComeDeepestFirst) {
  const NodeId folder = addFolder("folder");
  const NodeId inner = addFolder("inner", folder);
  const NodeId file = add("file", "i:1", inner);
  const NodeId beside = add("beside", "i:2");
  for (NodeId id : {folder, inner, file, beside})
    begin(id);
  const auto within = [&](NodeId id) {
    return read([&](ReplicaReader& reader) { return journal::within(reader, id); });
  };
  EXPECT_EQ(within(folder), (std::vector<NodeId>{file, inner, folder}));
  EXPECT_EQ(within(beside), std::vector<NodeId>{beside});
}

TEST_F(JournalTreeTest, OfWhatIsBelowTellsWhichContentsWereChanged) {
  const NodeId folder = addFolder("folder");
  const NodeId changed = add("changed", "i:1", folder);
  const NodeId unknown = add("deleted here", "", folder);
  const NodeId unsent = add("that the journal has forgotten", "i:2", folder);
  const NodeId renamed = add("renamed", "i:3", folder);
  const NodeId beside = add("beside", "i:4");
  for (NodeId id : {changed, unknown, unsent, beside})
    write([&](ReplicaWriter& writer) { nodeContents::markDirty(writer, id); });
  for (NodeId id : {changed, renamed, beside})
    begin(id);
  EXPECT_EQ(
      read([&](ReplicaReader& reader) { return journal::changedContentsBelow(reader, folder); }),
      (std::vector<NodeId>{changed, unsent}));
}

TEST_F(JournalTreeTest, HurriesAChangeAndWhatItWaitsFor) {
  const NodeId folder = addFolder("folder");
  const NodeId file = add("file", "i:1", folder);
  const NodeId beside = add("beside", "i:2", folder);
  for (NodeId id : {folder, file, beside})
    begin(id, 1000);
  const WallTime now{milliseconds(100)};
  write([&](ReplicaWriter& writer) { journal::hurry(writer, file, now); });
  EXPECT_EQ(find(file)->standing.due(), now);
  EXPECT_EQ(find(folder)->standing.due(), now);
  EXPECT_EQ(find(beside)->standing.due(), WallTime(milliseconds(1000)));
}

TEST_F(JournalTreeTest, WhatTheHostNeverHearsOfStaysHere) {
  const NodeId folder = addFolder("folder");
  const NodeId local = add("file~", "", folder);
  const NodeId fresh = add("fresh", "", folder);
  begin(fresh);
  const auto nodes = [&] {
    return read([](ReplicaReader& reader) { return journal::localNodes(reader, 100); });
  };
  const auto count = [&] {
    return read([](ReplicaReader& reader) { return journal::countLocal(reader); });
  };
  EXPECT_EQ(nodes(), std::vector<NodeId>{local});
  EXPECT_EQ(count(), 1);
  EXPECT_EQ(
      read([&](ReplicaReader& reader) { return journal::localPaths(reader, kRootNode, 100); }),
      std::vector<std::string>{"folder/file~"});
  write([&](ReplicaWriter& writer) { journal::erase(writer, fresh); });
  EXPECT_EQ(nodes(), (std::vector<NodeId>{local, fresh}));
  EXPECT_EQ(count(), 2);
}

TEST_F(JournalTreeTest, KnowsWhatIsWithinWhat) {
  const NodeId folder = addFolder("folder");
  const NodeId inner = addFolder("inner", folder);
  const NodeId file = add("file", "i:1", inner);
  const NodeId beside = add("beside", "i:2");
  const auto within = [&](NodeId node, const std::vector<NodeId>& nodes) {
    return read([&](ReplicaReader& reader) { return journal::isAnyWithin(reader, node, nodes); });
  };
  EXPECT_TRUE(within(folder, {beside, file}));
  EXPECT_TRUE(within(inner, {file}));
  EXPECT_TRUE(within(file, {file}));
  EXPECT_FALSE(within(folder, {beside, NodeId(4711)}));
  EXPECT_FALSE(within(folder, {}));
  // Whatever the rows say, it comes to an end.
  write([&](ReplicaWriter& writer) {
    Node row = *writer.node(folder);
    row.parent = inner;
    writer.update(row);
  });
  EXPECT_FALSE(within(beside, {file}));
}

}  // namespace
}  // namespace tulo::test
