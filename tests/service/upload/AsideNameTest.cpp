#include "service/upload/AsideName.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

Node nodeOf(std::uint64_t number) {
  Node node;
  node.id = NodeId(number);
  node.name = node.filename = "same";
  return node;
}

TEST(AsideNameTest, EachNodeHasItsOwn) {
  EXPECT_NE(asideName(nodeOf(7)), asideName(nodeOf(8)));
  EXPECT_EQ(asideName(nodeOf(7)), asideName(nodeOf(7)));
}

TEST(AsideNameTest, ItIsToldFromOrdinaryNames) {
  EXPECT_TRUE(isAsideName(asideName(nodeOf(7))));
  EXPECT_FALSE(isAsideName("same"));
  EXPECT_FALSE(isAsideName(".hidden"));
  EXPECT_FALSE(isAsideName("my.exchanging-7"));
}

// A service of another version finds what this one wrote down.
TEST(AsideNameTest, WhatTheReplicaKeepsStaysAsItIs) {
  EXPECT_EQ(asideName(nodeOf(7)), ".exchanging-7");
  EXPECT_EQ(asideKey(".exchanging-7"), "place before .exchanging-7");
}

}  // namespace
}  // namespace tulo::test
