#include "service/mount/WriteRequests.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class WriteRequestsTest : public MountFixture {
 protected:
  int flush(NodeId node) { return kernel().ask(FUSE_FLUSH, node, bytesOf(fuse_flush_in{})).error; }
  KernelReply seek(NodeId node, std::uint64_t offset, std::uint32_t whence) {
    fuse_lseek_in arguments = {};
    arguments.offset = offset;
    arguments.whence = whence;
    return kernel().ask(FUSE_LSEEK, node, bytesOf(arguments));
  }
  int fallocate(NodeId node, std::uint64_t offset, std::uint64_t length, std::uint32_t mode = 0) {
    fuse_fallocate_in arguments = {};
    arguments.offset = offset;
    arguments.length = length;
    arguments.mode = mode;
    return kernel().ask(FUSE_FALLOCATE, node, bytesOf(arguments)).error;
  }
  KernelReply copy(NodeId from, std::uint64_t offset, NodeId to, std::uint64_t newOffset,
                   std::uint64_t length) {
    fuse_copy_file_range_in arguments = {};
    arguments.off_in = offset;
    arguments.nodeid_out = to.number();
    arguments.off_out = newOffset;
    arguments.len = length;
    return kernel().ask(FUSE_COPY_FILE_RANGE, from, bytesOf(arguments));
  }
  std::uint64_t sizeOf(NodeId node) { return kernel().getattr(node).as<fuse_attr_out>().attr.size; }
};

TEST_F(WriteRequestsTest, WhatIsWrittenIsInTheFile) {
  const NodeId file = makeFile("name", "0123456789");
  const std::uint64_t handle = kernel().opened(file, O_WRONLY);
  EXPECT_EQ(kernel().write(file, "abc", 8).as<fuse_write_out>().size, 3U);
  kernel().release(file, handle);
  engine->files().catchUp();
  EXPECT_EQ(contentsOf(file), "01234567abc");
  EXPECT_EQ(row(file)->size, 11);
}

TEST_F(WriteRequestsTest, NothingIsWrittenToWhatIsNotHere) {
  EXPECT_EQ(kernel().write(NodeId(999'999), "abc").error, ESTALE);
  mountReadOnly();
  EXPECT_EQ(kernel().write(makeFile("name", "x"), "abc").error, EBADF);
}

TEST_F(WriteRequestsTest, ClosingWaitsForNothingInAnOrdinaryMount) {
  const NodeId file = makeFile("name", "x");
  const std::uint64_t handle = kernel().opened(file, O_WRONLY);
  kernel().write(file, "y");
  EXPECT_EQ(flush(file), 0);
  EXPECT_TRUE(sent().empty());
  kernel().release(file, handle);
}

TEST_F(WriteRequestsTest, ForcingAFileForcesTheJournalWithIt) {
  const NodeId file = makeFile("name", "x");
  const std::uint64_t handle = kernel().opened(file, O_WRONLY);
  kernel().write(file, "y");
  EXPECT_EQ(kernel().ask(FUSE_FSYNC, file, bytesOf(fuse_fsync_in{})).error, 0);
  EXPECT_EQ(row(file)->size, 1);
  kernel().release(file, handle);
}

TEST_F(WriteRequestsTest, AFolderIsForcedAlsoWhereNothingCanBeChanged) {
  EXPECT_EQ(kernel().ask(FUSE_FSYNCDIR, kRootNode, bytesOf(fuse_fsync_in{})).error, 0);
  mountReadOnly();
  EXPECT_EQ(kernel().ask(FUSE_FSYNCDIR, kRootNode, bytesOf(fuse_fsync_in{})).error, 0);
  EXPECT_EQ(kernel().ask(FUSE_FSYNC, kRootNode, bytesOf(fuse_fsync_in{})).error, 0);
}

TEST_F(WriteRequestsTest, RoomThatIsMadeIsPartOfTheFile) {
  const NodeId file = makeFile("name", "x");
  const std::uint64_t handle = kernel().opened(file, O_WRONLY);
  EXPECT_EQ(fallocate(file, 0, 4096), 0);
  EXPECT_EQ(sizeOf(file), 4096U);
  EXPECT_EQ(fallocate(file, 4096, 4096, FALLOC_FL_KEEP_SIZE), 0);
  EXPECT_EQ(sizeOf(file), 4096U);
  kernel().release(file, handle);
}

TEST_F(WriteRequestsTest, APieceOfOneFileIsCopiedIntoAnother) {
  const NodeId from = makeFile("from", "0123456789");
  const NodeId to = makeFile("to", "abcdef");
  const std::uint64_t source = kernel().opened(from, O_RDONLY);
  const std::uint64_t target = kernel().opened(to, O_WRONLY);
  EXPECT_EQ(copy(from, 2, to, 1, 3).as<fuse_write_out>().size, 3U);
  kernel().release(to, target);
  kernel().release(from, source);
  EXPECT_EQ(contentsOf(to), "a234ef");
  EXPECT_EQ(copy(from, 0, NodeId(999'999), 0, 1).error, ESTALE);
  EXPECT_EQ(copy(NodeId(999'999), 0, to, 0, 1).error, ESTALE);
}

TEST_F(WriteRequestsTest, HolesAndDataAreFound) {
  const NodeId file = makeFile("name", "0123456789");
  EXPECT_EQ(seek(file, 3, SEEK_DATA).as<fuse_lseek_out>().offset, 3U);
  EXPECT_EQ(seek(file, 3, SEEK_HOLE).as<fuse_lseek_out>().offset, 10U);
  EXPECT_EQ(seek(file, 10, SEEK_DATA).error, ENXIO);
}

}  // namespace
}  // namespace tulo::test
