#include "service/mount/TreeRequests.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class TreeRequestsTest : public MountFixture {};

TEST_F(TreeRequestsTest, ANameIsLookedUpInWhatIsKnown) {
  extension->file("f", "letter.txt", "Hello.");
  list();
  const std::size_t listings = extension->listingCount();
  const auto entry = kernel().lookup(kRootNode, "letter.txt").as<fuse_entry_out>();
  EXPECT_EQ(entry.nodeid, idOf("f").number());
  EXPECT_EQ(entry.attr.size, 6U);
  EXPECT_GE(entry.entry_valid, 24U * 3600);
  EXPECT_EQ(extension->listingCount(), listings);
}

TEST_F(TreeRequestsTest, AFolderThatWasNotListedYetIsListedFirst) {
  extension->folder("d", "Folder");
  extension->file("f", "inside", "x", "d");
  list();
  const KernelReply reply = kernel().lookup(idOf("d"), "inside");
  EXPECT_EQ(reply.error, 0);
  EXPECT_EQ(reply.as<fuse_entry_out>().nodeid, idOf("f").number());
}

TEST_F(TreeRequestsTest, TheKernelRemembersThatANameIsNotThere) {
  const KernelReply reply = kernel().lookup(kRootNode, "missing");
  EXPECT_EQ(reply.error, 0);
  const auto entry = reply.as<fuse_entry_out>();
  EXPECT_EQ(entry.nodeid, 0U);
  EXPECT_GT(entry.entry_valid, 0U);
}

TEST_F(TreeRequestsTest, ANameThatMayHaveComeMeanwhileIsLookedForAtTheHost) {
  EXPECT_EQ(kernel().lookup(kRootNode, "new").as<fuse_entry_out>().nodeid, 0U);
  extension->file("f", "new", "x");
  commit();
  const auto found = kernel().lookup(kRootNode, "new").as<fuse_entry_out>();
  EXPECT_NE(found.nodeid, 0U);
  EXPECT_EQ(found.nodeid, idOf("f").number());
}

TEST_F(TreeRequestsTest, ANameThatIsKnownIsNotLookedForAgain) {
  extension->file("f", "old", "x");
  list();
  commit();
  const std::size_t listings = extension->listingCount();
  EXPECT_EQ(kernel().lookup(kRootNode, "old").as<fuse_entry_out>().nodeid, idOf("f").number());
  EXPECT_EQ(extension->listingCount(), listings);
}

TEST_F(TreeRequestsTest, WhatCannotBeListedAndWasNeverKnownIsAnError) {
  extension->folder("d", "Folder");
  list();
  extension->setListingError(unreachable());
  EXPECT_EQ(kernel().lookup(idOf("d"), "anything").error, EHOSTDOWN);
}

TEST_F(TreeRequestsTest, WithoutAHostAMissingNameIsNotRememberedAsMissing) {
  commit();
  extension->setListingError(unreachable());
  const auto entry = kernel().lookup(kRootNode, "missing").as<fuse_entry_out>();
  EXPECT_EQ(entry.nodeid, 0U);
  EXPECT_EQ(entry.entry_valid, 0U);
}

TEST_F(TreeRequestsTest, NothingIsLookedUpInWhatIsGone) {
  EXPECT_EQ(kernel().lookup(NodeId(999'999), "x").error, ESTALE);
  EXPECT_EQ(kernel().getattr(NodeId(999'999)).error, ESTALE);
}

TEST_F(TreeRequestsTest, ATooLongNameIsRefused) {
  EXPECT_EQ(kernel().lookup(kRootNode, std::string(256, 'n')).error, ENAMETOOLONG);
}

TEST_F(TreeRequestsTest, ReferencesToFoldersAreCounted) {
  extension->folder("d", "Folder");
  list();
  const std::uint64_t before = engine->folders().references();
  kernel().lookup(kRootNode, "Folder");
  kernel().lookup(kRootNode, "Folder");
  EXPECT_EQ(engine->folders().references(), before + 2);
  kernel().send(FUSE_FORGET, idOf("d"), bytesOf(fuse_forget_in{2}));
  EXPECT_EQ(engine->folders().references(), before);
}

TEST_F(TreeRequestsTest, ManyAreForgottenAtOnce) {
  extension->folder("d", "Folder");
  extension->folder("e", "Other");
  list();
  const std::uint64_t before = engine->folders().references();
  kernel().lookup(kRootNode, "Folder");
  kernel().lookup(kRootNode, "Other");
  kernel().send(FUSE_BATCH_FORGET, kNoNode,
                bytesOf(fuse_batch_forget_in{2, 0}) +
                    bytesOf(fuse_forget_one{idOf("d").number(), 1}) +
                    bytesOf(fuse_forget_one{idOf("e").number(), 1}));
  EXPECT_EQ(engine->folders().references(), before);
}

TEST_F(TreeRequestsTest, WhatIsRemovedWhileItIsOpenKeepsItsAttributesWithoutAName) {
  const NodeId file = makeFile("name", "12345");
  const std::uint64_t handle = kernel().opened(file, O_RDONLY);
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "name"), 0);
  const auto reply = kernel().getattr(file).as<fuse_attr_out>();
  EXPECT_EQ(reply.attr.nlink, 0U);
  EXPECT_EQ(reply.attr.size, 5U);
  kernel().release(file, handle);
}

TEST_F(TreeRequestsTest, WhatAnotherVersionTookThePlaceOfKeepsItsAttributes) {
  const NodeId file = downloaded("f", "name", "first");
  const std::uint64_t handle = kernel().opened(file, O_RDONLY);
  extension->edit("f", "a longer one");
  list();
  ASSERT_NE(idOf("f"), file);
  EXPECT_EQ(kernel().getattr(file).as<fuse_attr_out>().attr.size, 5U);
  EXPECT_EQ(kernel().getattr(idOf("f")).as<fuse_attr_out>().attr.size, 12U);
  kernel().release(file, handle);
}

TEST_F(TreeRequestsTest, TheRoomIsThatOfTheDiskThatTheReplicaIsOn) {
  const auto status = kernel().ask(FUSE_STATFS, kRootNode).as<fuse_statfs_out>();
  EXPECT_GT(status.st.blocks, 0U);
  EXPECT_EQ(status.st.namelen, 255U);
}

}  // namespace
}  // namespace tulo::test
