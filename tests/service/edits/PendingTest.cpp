#include "service/edits/Pending.h"

#include <gtest/gtest.h>

#include "platform/FileProvider.h"
#include "service/replica/Journal.h"
#include "service/replica/JournalTree.h"
#include "service/replica/Replica.h"
#include "tests/service/support/ReplicaSql.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class PendingTest : public ::testing::Test {
 protected:
  PendingTest() : replica(directory.path()) {
    Node root;
    root.id = kRootNode;
    root.kind = NodeKind::folder;
    root.identifier = platform::NSFileProviderRootContainerItemIdentifier();
    write([&](ReplicaWriter& writer) { writer.insert(root); });
  }

  void write(const Replica::WriteFunction& function) {
    replica.write(Durability::eventual, function);
  }

  NodeId insert(NodeId parent, const std::string& name, NodeKind kind,
                const std::string& identifier) {
    Node node;
    node.parent = parent;
    node.name = name;
    node.filename = name;
    node.kind = kind;
    node.identifier = identifier;
    node.size = kind == NodeKind::file ? 5 : 0;
    NodeId id = kNoNode;
    write([&](ReplicaWriter& writer) { id = writer.insert(node); });
    return id;
  }

  // As Edits does it: the row leaves the tree and stays for the journal.
  void remove(NodeId id) {
    change(id, [](Change& each) { each.deletedHere(); });
    write([&](ReplicaWriter& writer) {
      runSql(writer, "UPDATE node SET parent=NULL WHERE id=" + std::to_string(id.number()));
    });
  }

  void rename(NodeId id, NodeId folder, const std::string& name) {
    change(id, [](Change&) {});
    write([&](ReplicaWriter& writer) {
      Node node = *writer.node(id);
      node.parent = folder;
      node.name = name;
      node.filename = name;
      writer.update(node);
    });
  }

  void change(NodeId id, const std::function<void(Change&)>& set) {
    write([&](ReplicaWriter& writer) {
      Change each = journal::begin(writer, *writer.node(id), WallTime{});
      set(each);
      journal::put(writer, each);
    });
  }

  pending::Item item(NodeId id) {
    return replica.read([&](ReplicaReader& reader) {
      return pending::describe(reader, *journal::find(reader, id));
    });
  }

  std::vector<NodeId> within(NodeId id) {
    return replica.read([&](ReplicaReader& reader) { return journal::within(reader, id); });
  }

  NodeId deletedFrom(NodeId folder, const std::string& name) {
    return replica.read(
        [&](ReplicaReader& reader) { return pending::deletedFrom(reader, folder, name); });
  }

  std::int64_t localItems() {
    return replica.read([](ReplicaReader& reader) { return journal::countLocal(reader); });
  }

  TemporaryDirectory directory;
  Replica replica;
};

TEST_F(PendingTest, TellsWhatAChangeIsOf) {
  const NodeId folder = insert(kRootNode, "folder", NodeKind::folder, "f:1");
  const NodeId old = insert(folder, "old", NodeKind::file, "i:1");
  const NodeId fresh = insert(folder, "fresh", NodeKind::file, "");
  const NodeId gone = insert(folder, "gone", NodeKind::file, "i:2");
  change(old, [](Change& each) { each.contentsChanged(); });
  change(fresh, [](Change& each) { each.contentsChanged(); });
  remove(gone);
  EXPECT_STREQ(pending::kindOf(item(old).change), "contents");
  EXPECT_STREQ(pending::kindOf(item(fresh).change), "new");
  EXPECT_STREQ(pending::kindOf(item(gone).change), "delete");
  EXPECT_EQ(item(old).path, "folder/old");
  EXPECT_EQ(item(old).former, "");
  EXPECT_EQ(item(fresh).path, "folder/fresh");
  EXPECT_TRUE(item(fresh).isNew);
  EXPECT_EQ(item(gone).path, "folder/gone");
}

TEST_F(PendingTest, TellsWhereTheHostHasWhatWasMoved) {
  const NodeId folder = insert(kRootNode, "folder", NodeKind::folder, "f:1");
  const NodeId file = insert(folder, "old name", NodeKind::file, "i:1");
  rename(file, kRootNode, "new name");
  EXPECT_STREQ(pending::kindOf(item(file).change), "name");
  EXPECT_EQ(item(file).path, "new name");
  EXPECT_EQ(item(file).former, "folder/old name");
}

TEST_F(PendingTest, WhatWasDeletedWithItsFolderHasItsFormerPath) {
  const NodeId outer = insert(kRootNode, "outer", NodeKind::folder, "f:1");
  const NodeId inner = insert(outer, "inner", NodeKind::folder, "f:2");
  const NodeId file = insert(inner, "file", NodeKind::file, "i:1");
  remove(file);
  remove(inner);
  EXPECT_EQ(item(file).path, "outer/inner/file");
  EXPECT_EQ(within(outer), (std::vector<NodeId>{file, inner}));
  EXPECT_EQ(within(file), std::vector<NodeId>{file});
  EXPECT_EQ(deletedFrom(outer, "inner"), inner);
  EXPECT_EQ(deletedFrom(inner, "file"), file);
  EXPECT_EQ(deletedFrom(outer, "file"), kNoNode);
}

TEST_F(PendingTest, FindsTheChangesUnderAFolderDeepestFirst) {
  const NodeId folder = insert(kRootNode, "folder", NodeKind::folder, "f:1");
  const NodeId inside = insert(folder, "inside", NodeKind::folder, "");
  const NodeId deep = insert(inside, "deep", NodeKind::file, "");
  const NodeId beside = insert(kRootNode, "beside", NodeKind::file, "i:1");
  for (NodeId id : {folder, inside, deep, beside})
    change(id, [](Change&) {});
  EXPECT_EQ(within(folder), (std::vector<NodeId>{deep, inside, folder}));
  EXPECT_EQ(within(deep), std::vector<NodeId>{deep});
  EXPECT_EQ(within(kRootNode).size(), 4U);
}

TEST_F(PendingTest, AFileThatIsThereWasNotDeleted) {
  const NodeId file = insert(kRootNode, "file", NodeKind::file, "i:1");
  EXPECT_EQ(deletedFrom(kRootNode, "file"), kNoNode);
  change(file, [](Change& each) { each.contentsChanged(); });
  EXPECT_EQ(deletedFrom(kRootNode, "file"), kNoNode);
  EXPECT_EQ(deletedFrom(NodeId(12345), "file"), kNoNode);
}

TEST_F(PendingTest, CountsWhatStaysHere) {
  insert(kRootNode, "known", NodeKind::file, "i:1");
  EXPECT_EQ(localItems(), 0);
  insert(kRootNode, "file~", NodeKind::file, "");
  const NodeId fresh = insert(kRootNode, "fresh", NodeKind::file, "");
  EXPECT_EQ(localItems(), 2);
  change(fresh, [](Change&) {});
  EXPECT_EQ(localItems(), 1);
  const NodeId backup = insert(kRootNode, "backup~", NodeKind::file, "i:2");
  change(backup, [](Change& each) { each.standing.hold(); });
  EXPECT_EQ(localItems(), 2);
}

}  // namespace
}  // namespace tulo::test
