#include "service/upload/SentItem.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

Node nodeNamed(const std::string& filename, NodeKind kind = NodeKind::file) {
  Node node;
  node.kind = kind;
  node.filename = filename;
  node.identifier = "i:1";
  node.size = 5;
  node.contentVersion = "c";
  node.metadataVersion = "m";
  return node;
}

TEST(SentItemTest, AFileHasItsPlaceItsSizeAndItsVersions) {
  const auto item = itemOf(nodeNamed("a.txt"), "f:1");
  EXPECT_EQ(item->itemIdentifier(), "i:1");
  EXPECT_EQ(item->parentItemIdentifier(), "f:1");
  EXPECT_EQ(item->filename(), "a.txt");
  EXPECT_EQ(item->documentSize(), 5);
  EXPECT_EQ(item->itemVersion().contentVersion, "c");
  EXPECT_EQ(item->itemVersion().metadataVersion, "m");
}

TEST(SentItemTest, AFolderHasNoSize) {
  const auto item = itemOf(nodeNamed("Docs", NodeKind::folder), "f:1");
  EXPECT_FALSE(item->documentSize());
  EXPECT_EQ(item->contentType(), platform::UTType::folder());
}

TEST(SentItemTest, AFileWithoutAKnownExtensionIsData) {
  EXPECT_EQ(itemOf(nodeNamed("README"), "f:1")->contentType(), platform::UTType::data());
  EXPECT_EQ(itemOf(nodeNamed("a.unheardof"), "f:1")->contentType(), platform::UTType::data());
}

TEST(SentItemTest, AFolderInReplyToAFileIsAPlaceholder) {
  const Node file = nodeNamed("a.txt");
  EXPECT_FALSE(isPlaceholder(file, *itemOf(file, "f:1")));
  EXPECT_TRUE(isPlaceholder(file, *itemOf(nodeNamed("a.txt", NodeKind::folder), "f:1")));
}

TEST(SentItemTest, AFolderOfAnotherNameInReplyToAFolderIsAPlaceholder) {
  const Node folder = nodeNamed("Docs", NodeKind::folder);
  EXPECT_FALSE(isPlaceholder(folder, *itemOf(folder, "f:1")));
  EXPECT_TRUE(isPlaceholder(folder, *itemOf(nodeNamed("?", NodeKind::folder), "f:1")));
}

}  // namespace
}  // namespace tulo::test
