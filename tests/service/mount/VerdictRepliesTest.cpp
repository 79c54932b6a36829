#include "service/mount/VerdictReplies.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class VerdictRepliesTest : public MountFixture {
 protected:
  VerdictRepliesTest() { mountWaiting(); }

  Kernel::Ticket beginMaking(const std::string& name) {
    return kernel().send(FUSE_MKDIR, kRootNode, bytesOf(fuse_mkdir_in{0755, 0}) + nameBytes(name));
  }
  Kernel::Ticket beginClosing(NodeId node) {
    return kernel().send(FUSE_FLUSH, node, bytesOf(fuse_flush_in{}));
  }
  void refuseNext() {
    extension->scriptMutation({.error = platform::fileProviderError(
                                   platform::NSFileProviderErrorCode::insufficientQuota)});
  }
};

TEST_F(VerdictRepliesTest, AFolderIsMadeWhenTheHostHasIt) {
  const Kernel::Ticket make = beginMaking("Folder");
  EXPECT_FALSE(kernel().isAnswered(make));
  drain();
  const KernelReply reply = kernel().await(make);
  EXPECT_EQ(reply.error, 0);
  EXPECT_EQ(reply.as<fuse_entry_out>().nodeid, named("Folder").number());
  EXPECT_EQ(extension->named("Folder").size(), 1U);
}

TEST_F(VerdictRepliesTest, AfterAFailureTheKernelLooksAtTheNameAgain) {
  refuseNext();
  const Kernel::Ticket make = beginMaking("Folder");
  drain();
  EXPECT_EQ(kernel().await(make).error, EDQUOT);
  EXPECT_TRUE(delivered().has(entryChanged(kRootNode, "Folder")));
  EXPECT_NE(named("Folder"), kNoNode) << "it is kept here, and goes up later";
}

TEST_F(VerdictRepliesTest, WithoutAHostNobodyWaits) {
  std::filesystem::remove(directory.file("fp.sock"));
  EXPECT_EQ(kernel().await(beginMaking("Folder")).error, EHOSTDOWN);
}

TEST_F(VerdictRepliesTest, ClosingAChangedFileWaits) {
  const NodeId file = makeFile("name", "");
  const std::uint64_t handle = kernel().opened(file, O_WRONLY);
  kernel().write(file, "bytes");
  const Kernel::Ticket close = beginClosing(file);
  EXPECT_FALSE(kernel().isAnswered(close));
  drain();
  EXPECT_EQ(kernel().await(close).error, 0);
  EXPECT_EQ(hostContents("name"), "bytes");
  kernel().release(file, handle);
}

TEST_F(VerdictRepliesTest, ClosingAnEmptyFileDoesNotWait) {
  const NodeId file = makeFile("name", "");
  const std::uint64_t handle = kernel().opened(file, O_WRONLY);
  EXPECT_EQ(kernel().await(beginClosing(file)).error, 0);
  EXPECT_TRUE(sent().empty());
  kernel().release(file, handle);
}

TEST_F(VerdictRepliesTest, ClosingWhatTheHostHasDoesNotWait) {
  const NodeId file = downloaded("f", "name", "bytes");
  const std::uint64_t handle = kernel().opened(file, O_RDWR);
  EXPECT_EQ(kernel().await(beginClosing(file)).error, 0);
  kernel().release(file, handle);
}

TEST_F(VerdictRepliesTest, RemovingWaits) {
  downloaded("f", "name", "bytes");
  const Kernel::Ticket remove = kernel().send(FUSE_UNLINK, kRootNode, nameBytes("name"));
  EXPECT_FALSE(kernel().isAnswered(remove));
  drain();
  EXPECT_EQ(kernel().await(remove).error, 0);
  EXPECT_FALSE(extension->find("f"));
}

TEST_F(VerdictRepliesTest, RenamingWaits) {
  downloaded("f", "before", "bytes");
  const Kernel::Ticket rename = kernel().send(FUSE_RENAME2, kRootNode,
                                              bytesOf(fuse_rename2_in{kRootNode.number(), 0, 0}) +
                                                  nameBytes("before") + nameBytes("after"));
  EXPECT_FALSE(kernel().isAnswered(rename));
  drain();
  EXPECT_EQ(kernel().await(rename).error, 0);
  EXPECT_EQ(extension->find("f")->name, "after");
}

TEST_F(VerdictRepliesTest, InAnOrdinaryMountNothingIsAskedOfTheHost) {
  mountWritable();
  EXPECT_EQ(kernel().await(beginMaking("Folder")).error, 0);
  EXPECT_TRUE(sent().empty());
}

}  // namespace
}  // namespace tulo::test
