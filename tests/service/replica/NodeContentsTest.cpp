#include "service/replica/NodeContents.h"

#include "service/replica/ContentRows.h"
#include "tests/service/support/ReplicaFixture.h"
#include "tests/service/support/ReplicaSql.h"

namespace tulo::test {
namespace {

class NodeContentsTest : public ReplicaFixture {
 protected:
  ContentId reserve(NodeId node) {
    ContentId content;
    write([&](ReplicaWriter& writer) { content = contentRows::reserve(writer, node); });
    return content;
  }

  ContentId adopt(NodeId node) {
    const ContentId content = reserve(node);
    write([&](ReplicaWriter& writer) { nodeContents::adopt(writer, node, content, 8); });
    return content;
  }

  std::vector<ContentId> unused() {
    return read([](ReplicaReader& reader) { return contentRows::unused(reader, kNoContent, 100); });
  }

  ContentState state(NodeId node) { return row(node)->state; }
};

TEST_F(NodeContentsTest, WhatIsAdoptedReplacesWhatWasThere) {
  const NodeId file = add("file", "i:1");
  const ContentId old = adopt(file);
  EXPECT_TRUE(unused().empty());
  write([&](ReplicaWriter& writer) { writer.setError(file, "failed before"); });
  const ContentId fresh = adopt(file);
  EXPECT_EQ(state(file), ContentState::downloaded);
  EXPECT_EQ(row(file)->content, fresh);
  EXPECT_EQ(row(file)->blocks, 8);
  EXPECT_EQ(row(file)->error, "");
  EXPECT_EQ(unused(), std::vector<ContentId>{old});
}

TEST_F(NodeContentsTest, WhatIsDroppedIsUnused) {
  const NodeId file = add("file", "i:1");
  const ContentId content = adopt(file);
  write([&](ReplicaWriter& writer) { nodeContents::drop(writer, file); });
  EXPECT_EQ(state(file), ContentState::dataless);
  EXPECT_EQ(row(file)->content, kNoContent);
  EXPECT_EQ(unused(), std::vector<ContentId>{content});
}

TEST_F(NodeContentsTest, AChangeMakesThemNewerThanTheHostsAndUnsafe) {
  const NodeId file = add("file", "i:1");
  const ContentId content = reserve(file);
  write([&](ReplicaWriter& writer) {
    contentRows::setDurable(writer, content);
    nodeContents::beginChange(writer, file, content);
  });
  EXPECT_EQ(state(file), ContentState::dirty);
  EXPECT_EQ(row(file)->content, content);
  EXPECT_TRUE(unused().empty());
  EXPECT_FALSE(
      read([&](ReplicaReader& reader) { return contentRows::isDurable(reader, content); }));
}

TEST_F(NodeContentsTest, TheStateFollowsWhatTheHostHas) {
  const NodeId file = add("file", "i:1");
  write([&](ReplicaWriter& writer) { nodeContents::markDirtyIfAny(writer, file); });
  EXPECT_EQ(state(file), ContentState::dataless);
  write([&](ReplicaWriter& writer) {
    nodeContents::set(writer, file, ContentId(3));
    nodeContents::markDirtyIfAny(writer, file);
  });
  EXPECT_EQ(state(file), ContentState::dirty);
  EXPECT_EQ(row(file)->content, ContentId(3));
  write([&](ReplicaWriter& writer) { nodeContents::markDownloaded(writer, file); });
  EXPECT_EQ(state(file), ContentState::downloaded);
  write([&](ReplicaWriter& writer) { nodeContents::markDirty(writer, file); });
  EXPECT_EQ(state(file), ContentState::dirty);
}

TEST_F(NodeContentsTest, WhatIsFoundWithoutARowIsNewerThanTheHosts) {
  const NodeId file = add("file", "");
  write([&](ReplicaWriter& writer) { nodeContents::recover(writer, file, ContentId(77), 12, 8); });
  EXPECT_EQ(state(file), ContentState::dirty);
  EXPECT_EQ(row(file)->content, ContentId(77));
  EXPECT_EQ(row(file)->size, 12);
  EXPECT_EQ(row(file)->blocks, 8);
  EXPECT_EQ(read([](ReplicaReader& reader) { return contentRows::blocks(reader); }), 8);
}

TEST_F(NodeContentsTest, OfTheDoubtfulOnlyWhatCanBeHadAgainIsDropped) {
  const NodeId doubtful = add("doubtful", "i:1");
  const NodeId safe = add("safe", "i:2");
  const NodeId dirty = add("dirty", "i:3");
  const NodeId sent = add("sent", "i:4");
  adopt(doubtful);
  const ContentId safeContent = adopt(safe);
  adopt(dirty);
  const ContentId sentContent = reserve(sent);
  write([&](ReplicaWriter& writer) {
    contentRows::setDurable(writer, safeContent);
    nodeContents::markDirty(writer, dirty);
    contentRows::use(writer, sentContent);
    runSql(writer, "INSERT INTO pending (node,sequence,due,sent,sent_content) VALUES (" +
                       std::to_string(sent.number()) + ",1,0,1," +
                       std::to_string(sentContent.number()) + ")");
    nodeContents::dropDoubtful(writer);
  });
  EXPECT_EQ(state(doubtful), ContentState::dataless);
  EXPECT_EQ(state(safe), ContentState::downloaded);
  EXPECT_EQ(state(dirty), ContentState::dirty);
  EXPECT_EQ(unused().size(), 1U);
}

TEST_F(NodeContentsTest, TheLeastUsedThatMayGoComeFirst) {
  const NodeId late = add("late", "i:1");
  const NodeId early = add("early", "i:2");
  const NodeId dirty = add("dirty", "i:3");
  add("dataless", "i:4");
  for (NodeId id : {late, early, dirty})
    adopt(id);
  write([&](ReplicaWriter& writer) {
    writer.setLastUsed(late, WallSeconds(seconds(200)));
    writer.setLastUsed(early, WallSeconds(seconds(100)));
    nodeContents::markDirty(writer, dirty);
  });
  const auto after = [&](const nodeContents::Cached& last) {
    return read([&](ReplicaReader& reader) { return nodeContents::leastUsed(reader, last, 1); });
  };
  const auto first = after({});
  ASSERT_EQ(first.size(), 1U);
  EXPECT_EQ(first[0].node, early);
  EXPECT_EQ(first[0].lastUsed, WallSeconds(seconds(100)));
  EXPECT_EQ(first[0].blocks, row(early)->blocks);
  const auto second = after(first[0]);
  ASSERT_EQ(second.size(), 1U);
  EXPECT_EQ(second[0].node, late);
  EXPECT_TRUE(after(second[0]).empty());
}

TEST_F(NodeContentsTest, KnowsWhatExistsHereAlone) {
  add("known", "i:1");
  const NodeId local = add("file~", "");
  add("empty~", "");
  write([&](ReplicaWriter& writer) { nodeContents::markDirty(writer, local); });
  EXPECT_EQ(read([](ReplicaReader& reader) { return nodeContents::changed(reader); }),
            std::vector<NodeId>{local});
}

}  // namespace
}  // namespace tulo::test
