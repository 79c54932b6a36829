#include "service/mount/EntryReplies.h"

#include <gtest/gtest.h>

#include "platform/FileProvider.h"
#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

constexpr std::uint64_t kMayWrite = platform::NSFileProviderItemCapabilitiesAllowsWriting;

class EntryRepliesTest : public MountFixture {
 protected:
  static Entry entry(NodeKind kind, std::uint64_t capabilities = kMayWrite, int mode = 0) {
    Entry result;
    result.id = NodeId(20);
    result.kind = kind;
    result.size = 1234;
    result.blocks = 8;
    result.capabilities = capabilities;
    result.mode = mode;
    return result;
  }

  EntryReplies replies{readOnlyParts(), 1000, 100};
};

TEST_F(EntryRepliesTest, EverythingBelongsToWhoMounted) {
  const struct stat status = replies.attributes(entry(NodeKind::file));
  EXPECT_EQ(status.st_ino, 20U);
  EXPECT_EQ(status.st_uid, 1000U);
  EXPECT_EQ(status.st_gid, 100U);
  EXPECT_EQ(status.st_nlink, 1U);
}

TEST_F(EntryRepliesTest, AFileHasItsSizeAndTheBlocksThatItTakesUpHere) {
  const struct stat status = replies.attributes(entry(NodeKind::file));
  EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
  EXPECT_EQ(status.st_size, 1234);
  EXPECT_EQ(status.st_blocks, 8);
}

TEST_F(EntryRepliesTest, AFolderHasNoSize) {
  const struct stat status = replies.attributes(entry(NodeKind::folder));
  EXPECT_EQ(status.st_mode, S_IFDIR | 0700U);
  EXPECT_EQ(status.st_size, 0);
}

TEST_F(EntryRepliesTest, ALinkIsOpenToAllAndAsLongAsItsTarget) {
  const struct stat status = replies.attributes(entry(NodeKind::link, 0));
  EXPECT_EQ(status.st_mode, S_IFLNK | 0777U);
  EXPECT_EQ(status.st_size, 1234);
}

TEST_F(EntryRepliesTest, WhatMayNotBeWrittenHasNoSuchBits) {
  EXPECT_EQ(replies.attributes(entry(NodeKind::file, 0)).st_mode, S_IFREG | 0400U);
  EXPECT_EQ(replies.attributes(entry(NodeKind::folder, 0)).st_mode, S_IFDIR | 0500U);
  EXPECT_EQ(replies.attributes(entry(NodeKind::file, 0, kModeSet | 0755)).st_mode, S_IFREG | 0555U);
}

TEST_F(EntryRepliesTest, PermissionsThatWereSetHereCountAlsoWhenThereAreNone) {
  EXPECT_EQ(replies.attributes(entry(NodeKind::file, kMayWrite, kModeSet | 0754)).st_mode,
            S_IFREG | 0754U);
  EXPECT_EQ(replies.attributes(entry(NodeKind::file, kMayWrite, kModeSet)).st_mode,
            unsigned{S_IFREG});
}

TEST_F(EntryRepliesTest, AProgramThatWritesSeesTheSizeAtOnce) {
  const NodeId file = makeFile("name", "");
  const std::uint64_t handle = kernel().opened(file, O_WRONLY);
  kernel().write(file, "12345");
  EXPECT_EQ(kernel().getattr(file).as<fuse_attr_out>().attr.size, 5U);
  EXPECT_EQ(row(file)->size, 0) << "the row follows when the file is closed";
  kernel().release(file, handle);
}

TEST_F(EntryRepliesTest, AnEntryIsValidUntilSomethingElseIsSaid) {
  const fuse_entry_param parameters = replies.parameters(entry(NodeKind::file));
  EXPECT_EQ(parameters.ino, 20U);
  EXPECT_EQ(parameters.attr_timeout, kForever);
  EXPECT_EQ(parameters.entry_timeout, kForever);
  EXPECT_EQ(parameters.attr.st_size, 1234);
}

TEST_F(EntryRepliesTest, AListingWithoutAttributesHasNumbersAndKinds) {
  const auto kindOf = [](NodeKind kind) {
    return EntryReplies::withTypeOnly(entry(kind)).attr.st_mode;
  };
  EXPECT_EQ(kindOf(NodeKind::file), unsigned{S_IFREG});
  EXPECT_EQ(kindOf(NodeKind::folder), unsigned{S_IFDIR});
  EXPECT_EQ(kindOf(NodeKind::link), unsigned{S_IFLNK});
  EXPECT_EQ(EntryReplies::withTypeOnly(entry(NodeKind::file)).attr.st_ino, 20U);
}

TEST_F(EntryRepliesTest, OnlyAnotherOwnerIsAChangeOfTheOwner) {
  struct stat wanted = {};
  wanted.st_uid = 1000;
  wanted.st_gid = 100;
  EXPECT_FALSE(replies.changesOwner(wanted, FUSE_SET_ATTR_UID | FUSE_SET_ATTR_GID));
  wanted.st_gid = 101;
  EXPECT_FALSE(replies.changesOwner(wanted, FUSE_SET_ATTR_UID));
  EXPECT_TRUE(replies.changesOwner(wanted, FUSE_SET_ATTR_GID));
  wanted.st_uid = 0;
  EXPECT_TRUE(replies.changesOwner(wanted, FUSE_SET_ATTR_UID));
  EXPECT_FALSE(replies.changesOwner(wanted, FUSE_SET_ATTR_MODE));
}

}  // namespace
}  // namespace tulo::test
