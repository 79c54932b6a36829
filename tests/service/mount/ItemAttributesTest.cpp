#include "service/mount/ItemAttributes.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

Node file() {
  Node node;
  node.id = NodeId(20);
  node.kind = NodeKind::file;
  node.identifier = "identifier";
  node.filename = "at the host.txt";
  node.contentVersion = "7";
  return node;
}

std::string valueOf(const ItemAttributes& attributes, const std::string& name) {
  return attributes.value("user.tulo." + name, "account").value_or("none");
}

bool lists(const ItemAttributes& attributes, const std::string& name) {
  const std::vector<std::string> names = attributes.names();
  return std::find(names.begin(), names.end(), "user.tulo." + name) != names.end();
}

TEST(ItemAttributesTest, AnItemSaysWhatTheHostHasOfIt) {
  const ItemAttributes attributes(file(), std::nullopt);
  EXPECT_EQ(valueOf(attributes, "identifier"), "identifier");
  EXPECT_EQ(valueOf(attributes, "filename"), "at the host.txt");
  EXPECT_EQ(valueOf(attributes, "content-version"), "7");
  EXPECT_EQ(valueOf(attributes, "domain"), "account");
  EXPECT_EQ(valueOf(attributes, "local"), "none");
  EXPECT_EQ(valueOf(attributes, "pending"), "none");
  EXPECT_EQ(valueOf(attributes, "anything"), "none");
}

TEST(ItemAttributesTest, TheStateIsThatOfTheContents) {
  Node node = file();
  EXPECT_EQ(valueOf({node, std::nullopt}, "state"), "dataless");
  node.state = ContentState::downloaded;
  EXPECT_EQ(valueOf({node, std::nullopt}, "state"), "downloaded");
  node.state = ContentState::dirty;
  EXPECT_EQ(valueOf({node, std::nullopt}, "state"), "modified");
}

TEST(ItemAttributesTest, AFolderIsListedOrNotAndHasNoContents) {
  Node node = file();
  node.kind = NodeKind::folder;
  EXPECT_EQ(valueOf({node, std::nullopt}, "state"), "unlisted");
  EXPECT_EQ(valueOf({node, std::nullopt}, "content-version"), "none");
  node.listed = 3;
  EXPECT_EQ(valueOf({node, std::nullopt}, "state"), "listed");
}

TEST(ItemAttributesTest, WhatStaysHereIsLocalAndWaitsForNothing) {
  Change change;
  change.standing.hold();
  const ItemAttributes held(file(), change);
  EXPECT_EQ(valueOf(held, "state"), "local");
  EXPECT_EQ(valueOf(held, "local"), "1");
  EXPECT_EQ(valueOf(held, "pending"), "none");
  Node unknown = file();
  unknown.identifier.clear();
  EXPECT_EQ(valueOf({unknown, std::nullopt}, "state"), "local");
}

TEST(ItemAttributesTest, TheRootIsNeverLocal) {
  Node root = file();
  root.id = kRootNode;
  root.kind = NodeKind::folder;
  root.identifier.clear();
  EXPECT_EQ(valueOf({root, std::nullopt}, "state"), "unlisted");
}

TEST(ItemAttributesTest, TheErrorIsThatOfTheItemOrElseOfItsChange) {
  Change change;
  change.standing.failed("refused");
  EXPECT_EQ(valueOf({file(), change}, "error"), "refused");
  Node node = file();
  node.error = "not fetched";
  EXPECT_EQ(valueOf({node, change}, "error"), "not fetched");
  EXPECT_EQ(valueOf({file(), std::nullopt}, "error"), "none");
}

TEST(ItemAttributesTest, PinnedAndKeptAreTwoThings) {
  Node node = file();
  node.kept = true;
  EXPECT_EQ(valueOf({node, std::nullopt}, "pinned"), "0");
  EXPECT_EQ(valueOf({node, std::nullopt}, "kept"), "1");
}

TEST(ItemAttributesTest, OnlyWhatHasAValueIsListed) {
  const ItemAttributes plain(file(), std::nullopt);
  EXPECT_TRUE(lists(plain, "state"));
  EXPECT_FALSE(lists(plain, "error"));
  EXPECT_FALSE(lists(plain, "pending"));
  EXPECT_FALSE(lists(plain, "local"));
  Node node = file();
  node.error = "broken";
  EXPECT_TRUE(lists({node, std::nullopt}, "error"));
}

class StoredItemAttributesTest : public MountFixture {};

TEST_F(StoredItemAttributesTest, AnItemIsReadWithItsChange) {
  const NodeId made = makeFile("new", "x");
  const auto attributes = engine->replica().read(
      [&](ReplicaReader& reader) { return ItemAttributes::of(reader, made); });
  ASSERT_TRUE(attributes);
  EXPECT_NE(valueOf(*attributes, "pending"), "none");
  EXPECT_EQ(valueOf(*attributes, "state"), "modified");
  EXPECT_FALSE(engine->replica().read(
      [](ReplicaReader& reader) { return ItemAttributes::of(reader, NodeId(999'999)); }));
}

}  // namespace
}  // namespace tulo::test
