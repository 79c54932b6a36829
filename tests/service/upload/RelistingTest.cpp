#include "service/upload/Relisting.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

TEST(RelistingTest, ListsWhatWasWantedOnce) {
  std::vector<NodeId> listed;
  Relisting relisting([&](NodeId folder) { listed.push_back(folder); });
  relisting.want(NodeId(20));
  relisting.want(kRootNode);
  relisting.listWanted();
  relisting.listWanted();
  EXPECT_EQ(listed, (std::vector<NodeId>{NodeId(20), kRootNode}));
}

TEST(RelistingTest, NoFolderIsNotListed) {
  std::vector<NodeId> listed;
  Relisting relisting([&](NodeId folder) { listed.push_back(folder); });
  relisting.want(kNoNode);
  relisting.listWanted();
  EXPECT_TRUE(listed.empty());
}

TEST(RelistingTest, WhatIsWantedDuringAListingComesNext) {
  std::vector<NodeId> listed;
  Relisting* again = nullptr;
  Relisting relisting([&](NodeId folder) {
    if (listed.empty()) again->want(NodeId(21));
    listed.push_back(folder);
  });
  again = &relisting;
  relisting.want(NodeId(20));
  relisting.listWanted();
  EXPECT_EQ(listed, (std::vector<NodeId>{NodeId(20)}));
  relisting.listWanted();
  EXPECT_EQ(listed, (std::vector<NodeId>{NodeId(20), NodeId(21)}));
}

}  // namespace
}  // namespace tulo::test
