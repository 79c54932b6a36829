#include "service/replica/ReplicaWriter.h"

#include <set>

#include "service/replica/ContentRows.h"
#include "service/replica/Journal.h"
#include "service/replica/LocalTimes.h"
#include "service/replica/NodeContents.h"
#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

Node childOf(NodeId parent, const std::string& name, const std::string& identifier) {
  Node node;
  node.parent = parent;
  node.name = node.filename = name;
  node.identifier = identifier;
  return node;
}

class ReplicaWriterTest : public ReplicaFixture {
 protected:
  NodeId insert(const Node& node) {
    NodeId id = kNoNode;
    write([&](ReplicaWriter& writer) { id = writer.insert(node); });
    return id;
  }

  const NodeId folder = addFolder("folder");
  const NodeId file = add("file", "i:1", folder);
};

TEST_F(ReplicaWriterTest, RefusesANameOrAnIdentifierThatIsTaken) {
  EXPECT_NE(insert(childOf(folder, "a", "i:a")), kNoNode);
  EXPECT_EQ(insert(childOf(folder, "a", "i:2")), kNoNode);
  EXPECT_EQ(insert(childOf(kRootNode, "b", "i:a")), kNoNode);
  EXPECT_NE(insert(childOf(kRootNode, "a", "i:3")), kNoNode);
}

TEST_F(ReplicaWriterTest, OfManyAtOnceThoseThatAreTakenAreLeftOut) {
  insert(childOf(folder, "taken", "i:taken"));
  constexpr std::size_t kCount = 2 * ReplicaWriter::kManyNodes + 5;
  const std::set<std::size_t> bad = {0, 7, ReplicaWriter::kManyNodes + 3, kCount - 1};
  std::vector<Node> nodes;
  for (std::size_t i = 0; i < kCount; ++i)
    nodes.push_back(childOf(folder, "n" + std::to_string(i), "n:" + std::to_string(i)));
  nodes[0].name = "taken";
  nodes[7].identifier = "n:6";
  nodes[ReplicaWriter::kManyNodes + 3].name = "n2";
  nodes[kCount - 1].identifier = "i:taken";
  write([&](ReplicaWriter& writer) { writer.insertMany(nodes); });
  for (std::size_t i = 0; i < kCount; ++i) {
    EXPECT_EQ(nodes[i].id == kNoNode, bad.contains(i)) << i;
    if (bad.contains(i)) continue;
    const std::optional<Node> found = row(nodes[i].id);
    ASSERT_TRUE(found) << i;
    EXPECT_EQ(found->name, nodes[i].name);
    EXPECT_EQ(found->identifier, nodes[i].identifier);
  }
}

TEST_F(ReplicaWriterTest, SeesWhatItChangedBeforeTheCommit) {
  write([&](ReplicaWriter& writer) {
    writer.setIdentifier(file, "i:2");
    EXPECT_EQ(writer.nodeFor("i:2")->id, file);
    EXPECT_FALSE(read([](ReplicaReader& reader) { return reader.nodeFor("i:2"); }));
  });
}

TEST_F(ReplicaWriterTest, AnUpdateBringsANodeBackIntoTheTree) {
  write([&](ReplicaWriter& writer) { writer.detach(file, secondsNow()); });
  EXPECT_EQ(row(file)->parent, kNoNode);
  Node node = *row(file);
  node.parent = kRootNode;
  node.name = "other";
  node.size = 9;
  write([&](ReplicaWriter& writer) { writer.update(node); });
  EXPECT_EQ(row(file)->parent, kRootNode);
  EXPECT_EQ(row(file)->name, "other");
  EXPECT_EQ(row(file)->size, 9);
}

TEST_F(ReplicaWriterTest, AnUpdateKeepsFinerTimesOnlyOfTheSameSecond) {
  const WallSeconds second{seconds(100)};
  write([&](ReplicaWriter& writer) { writer.setModified(file, {second, nanoseconds(7)}); });
  Node node = *row(file);
  write([&](ReplicaWriter& writer) { writer.update(node); });
  EXPECT_EQ(row(file)->modified.beyond, nanoseconds(7));
  node.modified.whole = second + seconds(1);
  write([&](ReplicaWriter& writer) { writer.update(node); });
  EXPECT_EQ(row(file)->modified, (FileTime{second + seconds(1), {}}));
}

TEST_F(ReplicaWriterTest, TakesAllOutOfAFolderAtOnce) {
  const NodeId other = add("other", "i:2", folder);
  write([&](ReplicaWriter& writer) { writer.detachChildren(folder, secondsNow()); });
  EXPECT_EQ(row(file)->parent, kNoNode);
  EXPECT_EQ(row(other)->parent, kNoNode);
  EXPECT_EQ(row(folder)->parent, kRootNode);
}

TEST_F(ReplicaWriterTest, WhatIsTakenOutHasNoErrorAnyMore) {
  write([&](ReplicaWriter& writer) {
    writer.setError(file, "no");
    writer.takeOut(file);
  });
  EXPECT_EQ(row(file)->parent, kNoNode);
  EXPECT_EQ(row(file)->error, "");
}

TEST_F(ReplicaWriterTest, NamesCanBeExchanged) {
  const NodeId other = add("other", "i:2", folder);
  write([&](ReplicaWriter& writer) {
    writer.parkName(file);
    writer.setName(other, "file", "file");
    writer.setName(file, "other", "other at the host");
  });
  EXPECT_EQ(row(file)->name, "other");
  EXPECT_EQ(row(file)->filename, "other at the host");
  EXPECT_EQ(row(other)->name, "file");
}

TEST_F(ReplicaWriterTest, AFreshNumberTakesAllAlong) {
  NodeId fresh;
  ContentId content;
  write([&](ReplicaWriter& writer) {
    content = contentRows::reserve(writer, file);
    nodeContents::adopt(writer, file, content, 8);
    journal::put(writer, journal::begin(writer, *writer.node(file), WallTime{}));
    localTimes::note(writer, file);
    fresh = writer.renumber(file);
    nodeContents::drop(writer, fresh);
  });
  EXPECT_FALSE(row(file));
  EXPECT_EQ(row(fresh)->identifier, "i:1");
  read([&](ReplicaReader& reader) {
    EXPECT_TRUE(journal::find(reader, fresh));
    EXPECT_TRUE(localTimes::isNoted(reader, fresh));
    EXPECT_EQ(contentRows::unused(reader, kNoContent, 10), std::vector<ContentId>{content});
  });
}

TEST_F(ReplicaWriterTest, ARemovedNodeLeavesOnlyUnusedContents) {
  ContentId content;
  write([&](ReplicaWriter& writer) {
    content = contentRows::reserve(writer, file);
    nodeContents::adopt(writer, file, content, 8);
    journal::put(writer, journal::begin(writer, *writer.node(file), WallTime{}));
    localTimes::note(writer, file);
    writer.remove(file);
  });
  EXPECT_FALSE(row(file));
  read([&](ReplicaReader& reader) {
    EXPECT_FALSE(journal::find(reader, file));
    EXPECT_FALSE(localTimes::isNoted(reader, file));
    EXPECT_EQ(contentRows::unused(reader, kNoContent, 10), std::vector<ContentId>{content});
  });
}

TEST_F(ReplicaWriterTest, WhatTheHostHasOfANodeIsSetAndCleared) {
  write([&](ReplicaWriter& writer) {
    writer.setListed(folder, 3, "digest");
    writer.clearItem(folder);
    writer.clearIdentifier(file);
    writer.setVersions(file, "c", "m");
    writer.setContentVersion(file, "c2");
  });
  EXPECT_EQ(row(folder)->identifier, "");
  EXPECT_EQ(row(folder)->digest, "");
  EXPECT_EQ(row(folder)->listed, 3U);
  EXPECT_EQ(row(file)->identifier, "");
  EXPECT_EQ(row(file)->contentVersion, "c2");
  EXPECT_EQ(row(file)->metadataVersion, "m");
}

TEST_F(ReplicaWriterTest, OnlyAFolderThatWasListedIsCurrent) {
  write([&](ReplicaWriter& writer) { writer.setListedGeneration(folder, 5); });
  EXPECT_EQ(row(folder)->listed, 0U);
  write([&](ReplicaWriter& writer) {
    writer.setListed(folder, 3, "digest");
    writer.setListedGeneration(folder, 5);
  });
  EXPECT_EQ(row(folder)->listed, 5U);
  EXPECT_EQ(row(folder)->digest, "digest");
}

TEST_F(ReplicaWriterTest, NotesWhatWasSetHere) {
  const FileTime time{WallSeconds(seconds(100)), nanoseconds(7)};
  const FileTime later{WallSeconds(seconds(200)), nanoseconds(8)};
  write([&](ReplicaWriter& writer) {
    writer.setMode(file, kModeSet | 0600);
    writer.setWritten(file, 12, 8, time);
    writer.touch(folder, later);
  });
  EXPECT_EQ(row(file)->mode, kModeSet | 0600);
  EXPECT_EQ(row(file)->size, 12);
  EXPECT_EQ(row(file)->blocks, 8);
  EXPECT_EQ(row(file)->modified, time);
  EXPECT_EQ(row(folder)->modified, later);
}

TEST_F(ReplicaWriterTest, AFolderWithAFreshNumberKeepsWhatIsInIt) {
  NodeId fresh;
  write([&](ReplicaWriter& writer) {
    Node home;
    home.parent = kRootNode;
    home.kind = NodeKind::folder;
    home.name = home.filename = "home";
    Node inside = *writer.node(file);
    inside.parent = writer.insert(home);
    writer.update(inside);
    fresh = writer.renumber(inside.parent);
  });
  EXPECT_EQ(row(file)->parent, fresh);
}

}  // namespace
}  // namespace tulo::test
