#include "service/mount/ReadRequests.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<char>('a' + i % 23);
  return bytes;
}

class ReadRequestsTest : public MountFixture {
 protected:
  // One read of a file that is opened and closed for it.
  KernelReply readOf(NodeId node, std::uint32_t size, std::uint64_t offset = 0) {
    const std::uint64_t handle = kernel().opened(node, O_RDONLY);
    KernelReply reply = kernel().read(handle, size, offset);
    kernel().release(node, handle);
    return reply;
  }
};

TEST_F(ReadRequestsTest, APieceIsWhatStandsThere) {
  const NodeId file = downloaded("f", "name", "0123456789");
  EXPECT_EQ(readOf(file, 100).body, "0123456789");
  EXPECT_EQ(readOf(file, 3, 4).body, "456");
  EXPECT_EQ(readOf(file, 100, 8).body, "89");
}

TEST_F(ReadRequestsTest, NothingStandsBehindTheEnd) {
  const NodeId file = downloaded("f", "name", "0123456789");
  const KernelReply reply = readOf(file, 10, 10);
  EXPECT_EQ(reply.error, 0);
  EXPECT_EQ(reply.body, "");
  EXPECT_EQ(readOf(downloaded("e", "empty", ""), 10).body, "");
}

TEST_F(ReadRequestsTest, ALargePieceIsTheSameAsManySmallOnes) {
  const std::string bytes = pattern(100'000);
  const NodeId file = downloaded("f", "name", bytes);
  EXPECT_EQ(readOf(file, 64 * 1024).body, bytes.substr(0, 64 * 1024));
  EXPECT_EQ(readOf(file, 64 * 1024, 50'000).body, bytes.substr(50'000));
  EXPECT_EQ(readOf(file, 32 * 1024, 1).body, bytes.substr(1, 32 * 1024));
}

TEST_F(ReadRequestsTest, WhatOneProgramWritesAnotherReadsAtOnce) {
  const NodeId file = makeFile("name", "before");
  const std::uint64_t writer = kernel().opened(file, O_WRONLY);
  const std::uint64_t reader = kernel().opened(file, O_RDONLY);
  kernel().write(file, "BE");
  EXPECT_EQ(kernel().read(reader, 100).body, "BEfore");
  kernel().release(file, writer);
  EXPECT_EQ(kernel().read(reader, 100).body, "BEfore");
  kernel().release(file, reader);
}

TEST_F(ReadRequestsTest, WhoHasAnEarlierVersionOpenKeepsIt) {
  const NodeId file = downloaded("f", "name", "first");
  mountReadOnly();
  const std::uint64_t handle = kernel().opened(file, O_RDONLY);
  extension->edit("f", "second");
  list();
  EXPECT_EQ(kernel().read(handle, 100).body, "first");
  kernel().release(file, handle);
}

TEST_F(ReadRequestsTest, ContentsThatGotLostAreAnErrorAndAreFetchedAgain) {
  const NodeId file = downloaded("f", "name", "bytes");
  std::filesystem::remove(engine->store().path(row(file)->content));
  EXPECT_EQ(readOf(file, 100).error, EIO);
  EXPECT_EQ(readOf(file, 100).body, "bytes");
  EXPECT_EQ(extension->fetchCount(), 2U);
}

}  // namespace
}  // namespace tulo::test
