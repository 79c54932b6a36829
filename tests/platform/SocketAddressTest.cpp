#include "platform/linux/SocketAddress.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>

#include "platform/linux/FileDescriptor.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

constexpr std::size_t kLongest = sizeof(sockaddr_un::sun_path) - 1;

FileDescriptor unnamed() {
  return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

TEST(SocketAddressTest, WhatIsBoundCanBeReached) {
  const TemporaryDirectory directory;
  const auto address = SocketAddress::of(directory.file("a.sock"));
  ASSERT_TRUE(address);
  const FileDescriptor listener = unnamed();
  ASSERT_EQ(address->bind(listener.get()), 0);
  ASSERT_EQ(::listen(listener.get(), 1), 0);
  EXPECT_EQ(address->connect(unnamed().get()), 0);
}

TEST(SocketAddressTest, WhereNobodyListensTheErrnoSaysSo) {
  const TemporaryDirectory directory;
  EXPECT_EQ(SocketAddress::of(directory.file("a.sock"))->connect(unnamed().get()), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST(SocketAddressTest, TheLongestPathIsTakenAsAWhole) {
  const TemporaryDirectory directory;
  const std::string front = directory.path() + '/';
  ASSERT_LT(front.size(), kLongest);
  const std::string path = front + std::string(kLongest - front.size(), 'x');
  const FileDescriptor listener = unnamed();
  ASSERT_EQ(SocketAddress::of(path)->bind(listener.get()), 0);
  EXPECT_EQ(::access(path.c_str(), F_OK), 0);
}

TEST(SocketAddressTest, ALongerOneIsNoAddress) {
  EXPECT_FALSE(SocketAddress::of(std::string(kLongest + 1, 'x')));
}

}  // namespace
}  // namespace tulo::test
