#include "service/replica/ReplicaReader.h"

#include "service/replica/NodeContents.h"
#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class ReplicaReaderTest : public ReplicaFixture {
 protected:
  const NodeId folder = addFolder("folder");
  const NodeId file = add("file", "i:1", folder);
};

TEST_F(ReplicaReaderTest, FindsANodeByNumberAndByIdentifier) {
  read([&](ReplicaReader& reader) {
    EXPECT_EQ(reader.node(file)->name, "file");
    EXPECT_EQ(reader.nodeFor("i:1")->id, file);
    EXPECT_FALSE(reader.node(NodeId(12345)));
    EXPECT_FALSE(reader.nodeFor("missing"));
  });
}

TEST_F(ReplicaReaderTest, AnEntryIsInTheTree) {
  write([&](ReplicaWriter& writer) { writer.detach(file, secondsNow()); });
  read([&](ReplicaReader& reader) {
    EXPECT_TRUE(reader.entry(folder));
    EXPECT_FALSE(reader.entry(file));
    EXPECT_TRUE(reader.node(file));
  });
}

TEST_F(ReplicaReaderTest, LooksUpANameAndHowItsFolderStands) {
  write([&](ReplicaWriter& writer) { writer.setListed(folder, 7, "digest"); });
  read([&](ReplicaReader& reader) {
    const NameLookup found = reader.lookup(folder, "file");
    EXPECT_TRUE(found.folderExists);
    EXPECT_EQ(found.listed, 7U);
    ASSERT_TRUE(found.entry);
    EXPECT_EQ(found.entry->id, file);
    EXPECT_FALSE(reader.lookup(folder, "missing").entry);
    EXPECT_FALSE(reader.lookup(NodeId(12345), "file").folderExists);
    EXPECT_EQ(reader.listed(folder), 7U);
    EXPECT_EQ(reader.listed(NodeId(12345)), std::nullopt);
    EXPECT_EQ(reader.childNamed(folder, "file"), file);
    EXPECT_EQ(reader.childNamed(kRootNode, "file"), std::nullopt);
  });
}

TEST_F(ReplicaReaderTest, TellsWhatAnOpenNeeds) {
  write([&](ReplicaWriter& writer) { nodeContents::adopt(writer, file, ContentId(9), 8); });
  read([&](ReplicaReader& reader) {
    const std::optional<OpenLookup> found = reader.openLookup(file);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->kind, NodeKind::file);
    EXPECT_EQ(found->state, ContentState::downloaded);
    EXPECT_EQ(found->parent, folder);
    EXPECT_EQ(found->content, ContentId(9));
    EXPECT_EQ(found->size, 5);
  });
}

TEST_F(ReplicaReaderTest, ListsByNumberFromACursorUntilToldToStop) {
  const NodeId second = add("b", "i:2", folder);
  const NodeId third = add("a", "i:3", folder);
  std::vector<NodeId> seen;
  const auto visit = [&](const Entry& entry, std::string_view) {
    seen.push_back(entry.id);
    return seen.size() < 2;
  };
  read([&](ReplicaReader& reader) { reader.children(folder, kNoNode, visit); });
  EXPECT_EQ(seen, (std::vector<NodeId>{file, second}));
  seen.clear();
  read([&](ReplicaReader& reader) { reader.children(folder, second, visit); });
  EXPECT_EQ(seen, std::vector<NodeId>{third});
}

TEST_F(ReplicaReaderTest, KnowsWhetherAFolderHasMany) {
  add("second", "i:2", folder);
  read([&](ReplicaReader& reader) {
    EXPECT_EQ(reader.childNodes(folder).size(), 2U);
    EXPECT_TRUE(reader.hasAtLeast(folder, 2));
    EXPECT_FALSE(reader.hasAtLeast(folder, 3));
  });
}

TEST_F(ReplicaReaderTest, APathLeadsFromTheRootDown) {
  read([&](ReplicaReader& reader) {
    EXPECT_EQ(reader.path(file), (std::vector<std::string>{"folder", "file"}));
    EXPECT_TRUE(reader.path(kRootNode).empty());
  });
  write([&](ReplicaWriter& writer) { writer.detach(folder, secondsNow()); });
  EXPECT_TRUE(read([&](ReplicaReader& reader) { return reader.path(file); }).empty());
}

TEST_F(ReplicaReaderTest, WhatFailedIsToldWhileItIsInTheTree) {
  write([&](ReplicaWriter& writer) {
    writer.setError(file, "no");
    writer.setError(folder, "no");
  });
  const auto failed = [&] {
    return read([](ReplicaReader& reader) { return reader.failedNodes(10).size(); });
  };
  EXPECT_EQ(failed(), 2U);
  write([&](ReplicaWriter& writer) {
    writer.setError(file, "");
    writer.detach(folder, secondsNow());
  });
  EXPECT_EQ(failed(), 0U);
}

}  // namespace
}  // namespace tulo::test
