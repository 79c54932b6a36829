#include "service/mount/DirectoryBuffer.h"

#include <gtest/gtest.h>
#include <linux/fuse.h>

#include <cstring>

namespace tulo::test {
namespace {

struct stat statusOf(ino_t number) {
  struct stat status = {};
  status.st_ino = number;
  status.st_mode = S_IFREG;
  return status;
}

fuse_dirent entryAt(const DirectoryBuffer& buffer, std::size_t offset) {
  fuse_dirent entry = {};
  std::memcpy(&entry, buffer.data() + offset, FUSE_NAME_OFFSET);
  return entry;
}

TEST(DirectoryBufferTest, AnEntryHasItsNumberItsNameAndTheCookieOfTheNext) {
  DirectoryBuffer buffer(4096);
  ASSERT_TRUE(buffer.add(nullptr, "name", statusOf(20), nullptr, 33, false));
  const fuse_dirent entry = entryAt(buffer, 0);
  EXPECT_EQ(entry.ino, 20U);
  EXPECT_EQ(entry.off, 33U);
  EXPECT_EQ(std::string(buffer.data() + FUSE_NAME_OFFSET, entry.namelen), "name");
  EXPECT_EQ(buffer.used(), FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET + 4));
}

TEST(DirectoryBufferTest, WhatDoesNotFitIsNotAdded) {
  constexpr std::size_t kOne = FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET + 4);
  DirectoryBuffer buffer(2 * kOne - 1);
  EXPECT_TRUE(buffer.add(nullptr, "name", statusOf(20), nullptr, 1, false));
  EXPECT_FALSE(buffer.add(nullptr, "next", statusOf(21), nullptr, 2, false));
  EXPECT_EQ(buffer.used(), kOne);
  DirectoryBuffer exact(kOne);
  EXPECT_TRUE(exact.add(nullptr, "name", statusOf(20), nullptr, 1, false));
  EXPECT_EQ(exact.used(), kOne);
}

TEST(DirectoryBufferTest, AnEntryWithParametersIsOneThatTheKernelRemembers) {
  DirectoryBuffer buffer(4096);
  fuse_entry_param parameters = {};
  parameters.ino = 20;
  ASSERT_TRUE(buffer.add(nullptr, "kept", statusOf(20), &parameters, 1, true));
  ASSERT_TRUE(buffer.add(nullptr, ".", statusOf(20), nullptr, 2, true));
  fuse_entry_out first = {};
  fuse_entry_out second = {};
  std::memcpy(&first, buffer.data(), sizeof first);
  std::memcpy(&second, buffer.data() + FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET_DIRENTPLUS + 4),
              sizeof second);
  EXPECT_EQ(first.nodeid, 20U);
  EXPECT_EQ(second.nodeid, 0U);
}

}  // namespace
}  // namespace tulo::test
