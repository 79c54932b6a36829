#include "service/mount/MountTable.h"

#include <gtest/gtest.h>

#include <sstream>

namespace tulo::test {
namespace {

std::optional<unsigned> minorIn(const std::string& table, const std::string& path) {
  std::istringstream stream(table);
  const auto found = ourMountAt(path, stream);
  return found ? std::optional(found->minor) : std::nullopt;
}

TEST(MountTableTest, ALineIsTakenApart) {
  std::istringstream table(
      "40 22 0:51 / /home/ann/Mounted rw,nosuid shared:7 master:1 - fuse.tulo account rw\n");
  const auto found = mountedFileSystems(table);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].number, 40U);
  EXPECT_EQ(found[0].above, 22U);
  EXPECT_EQ(found[0].major, 0U);
  EXPECT_EQ(found[0].minor, 51U);
  EXPECT_EQ(found[0].point, "/home/ann/Mounted");
  EXPECT_EQ(found[0].type, "fuse.tulo");
  EXPECT_TRUE(found[0].isOurs());
}

TEST(MountTableTest, WhatIsNoLineIsLeftOut) {
  std::istringstream table("\nnonsense\n40 22 0:51 / /a rw\n40 22 0:51 / /b rw - ext4 x rw\n");
  const auto found = mountedFileSystems(table);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].point, "/b");
}

TEST(MountTableTest, OursIsFoundByItsPlace) {
  const std::string table =
      "22 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
      "40 22 0:51 / /home/ann/Mounted rw,nosuid - fuse.tulo account rw,user_id=1000\n"
      "41 22 0:52 / /home/ann/Other rw,nosuid - fuse.tulo account rw,user_id=1000\n";
  EXPECT_EQ(minorIn(table, "/home/ann/Mounted"), 51U);
  EXPECT_EQ(minorIn(table, "/home/ann/x/../Other"), 52U);
}

TEST(MountTableTest, APathWithBlanksAndBackslashesIsFound) {
  const std::string table = "40 22 0:51 / /home/ann/My\\040Cloud\\134 rw - fuse.tulo a rw\n";
  EXPECT_EQ(minorIn(table, "/home/ann/My Cloud\\"), 51U);
}

TEST(MountTableTest, OfSeveralMountsTheUppermostCounts) {
  const std::string table =
      "40 22 0:51 / /mnt/a rw - fuse.tulo a rw\n"
      "41 40 0:77 / /mnt/a rw - fuse.tulo b rw\n";
  EXPECT_EQ(minorIn(table, "/mnt/a"), 77U);
}

TEST(MountTableTest, OthersMountsAreNotOurs) {
  const std::string table =
      "40 22 0:51 / /mnt/a rw - fuse.other a rw\n"
      "41 22 8:2 / /mnt/b rw - ext4 /dev/sdb rw\n";
  EXPECT_FALSE(minorIn(table, "/mnt/a"));
  EXPECT_FALSE(minorIn(table, "/mnt/b"));
  EXPECT_FALSE(minorIn(table, "/mnt/c"));
}

}  // namespace
}  // namespace tulo::test
