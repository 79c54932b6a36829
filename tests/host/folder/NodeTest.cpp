#include "host/folder/Node.h"

#include <gtest/gtest.h>

namespace tulo::host {
namespace {

EntryStat fileStat() {
  EntryStat stat;
  stat.isFile = true;
  stat.inode = 7;
  stat.size = 5;
  stat.born = DiskTime(std::chrono::seconds(1));
  stat.modified = DiskTime(std::chrono::nanoseconds(2));
  return stat;
}

TEST(NodeTest, ContentsAreOtherOnesWithAnotherSizeTimeOrInode) {
  const EntryStat before = fileStat();
  const Node node{"u", "", "a", false, Fingerprint::of(before)};
  EXPECT_TRUE(node.isUnchanged(before));
  EntryStat after = before;
  after.size = 6;
  EXPECT_FALSE(node.isUnchanged(after));
  after = before;
  after.modified += std::chrono::nanoseconds(1);
  EXPECT_FALSE(node.isUnchanged(after));
  after = before;
  after.inode = 8;
  EXPECT_FALSE(node.isUnchanged(after));
}

TEST(NodeTest, TheTimeOfAFolderSaysNothing) {
  EntryStat stat = fileStat();
  stat.isFile = false;
  stat.isFolder = true;
  const Node node{"u", "", "d", true, Fingerprint::of(stat)};
  EXPECT_EQ(node.fingerprint.size, 0);
  stat.modified += std::chrono::seconds(1);
  stat.size = 4096;
  EXPECT_TRUE(node.isUnchanged(stat));
}

}  // namespace
}  // namespace tulo::host
