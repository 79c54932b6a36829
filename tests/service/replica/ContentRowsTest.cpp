#include "service/replica/ContentRows.h"

#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class ContentRowsTest : public ReplicaFixture {
 protected:
  ContentId reserve() {
    ContentId content;
    write([&](ReplicaWriter& writer) { content = contentRows::reserve(writer, NodeId(20)); });
    return content;
  }

  std::vector<ContentId> unused() {
    return read([](ReplicaReader& reader) { return contentRows::unused(reader, kNoContent, 100); });
  }

  std::vector<ContentId> notDurable() {
    return read([](ReplicaReader& reader) { return contentRows::notDurable(reader, 100); });
  }
};

TEST_F(ContentRowsTest, WhatIsReservedIsUnusedUntilItIsTakenIntoUse) {
  const ContentId content = reserve();
  EXPECT_EQ(unused(), std::vector<ContentId>{content});
  write([&](ReplicaWriter& writer) { contentRows::use(writer, content); });
  EXPECT_TRUE(unused().empty());
  write([&](ReplicaWriter& writer) { contentRows::disuse(writer, content); });
  EXPECT_EQ(unused(), std::vector<ContentId>{content});
}

TEST_F(ContentRowsTest, OnlyWhatIsUnusedIsRemovedAndTellsItsBlocks) {
  const ContentId content = reserve();
  write([&](ReplicaWriter& writer) {
    contentRows::setWritten(writer, content, 8);
    contentRows::use(writer, content);
    EXPECT_EQ(contentRows::remove(writer, content), std::nullopt);
    contentRows::disuse(writer, content);
    EXPECT_EQ(contentRows::remove(writer, content), 8);
    EXPECT_EQ(contentRows::remove(writer, content), std::nullopt);
  });
  EXPECT_TRUE(unused().empty());
}

TEST_F(ContentRowsTest, NumbersThatAreSkippedAreNotGiven) {
  const ContentId first = reserve();
  write([&](ReplicaWriter& writer) {
    contentRows::skip(writer, ContentId(first.number() + 100'000));
  });
  EXPECT_GE(reserve(), ContentId(first.number() + 100'000));
}

TEST_F(ContentRowsTest, WhatIsWrittenToIsNotDurableAnyMore) {
  const ContentId content = reserve();
  const auto durable = [&] {
    return read([&](ReplicaReader& reader) { return contentRows::isDurable(reader, content); });
  };
  EXPECT_FALSE(durable());
  write([&](ReplicaWriter& writer) {
    contentRows::use(writer, content);
    contentRows::setDurable(writer, content);
  });
  EXPECT_TRUE(durable());
  EXPECT_TRUE(notDurable().empty());
  write([&](ReplicaWriter& writer) { contentRows::setWritten(writer, content, 16); });
  EXPECT_FALSE(durable());
  EXPECT_EQ(notDurable(), std::vector<ContentId>{content});
  write([&](ReplicaWriter& writer) {
    contentRows::setDurable(writer, content);
    contentRows::clearDurable(writer, content);
  });
  EXPECT_EQ(notDurable(), std::vector<ContentId>{content});
}

TEST_F(ContentRowsTest, CountsTheBlocksOfAll) {
  const auto blocks = [&] {
    return read([](ReplicaReader& reader) { return contentRows::blocks(reader); });
  };
  EXPECT_EQ(blocks(), 0);
  const ContentId one = reserve();
  const ContentId two = reserve();
  write([&](ReplicaWriter& writer) {
    EXPECT_EQ(contentRows::setWritten(writer, one, 12), 12);
    EXPECT_EQ(contentRows::setWritten(writer, one, 8), -4);
    EXPECT_EQ(contentRows::setWritten(writer, two, 16), 16);
  });
  EXPECT_EQ(blocks(), 24);
}

}  // namespace
}  // namespace tulo::test
