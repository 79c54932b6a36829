#include "service/control/ControlSocket.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <thread>

#include "platform/linux/FileDescriptor.h"
#include "service/base/ServicePaths.h"

namespace tulo::test {
namespace {

class ControlSocketTest : public ::testing::Test {
 protected:
  ControlSocketTest() {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    near = FileDescriptor(ends[0]);
    far = FileDescriptor(ends[1]);
  }

  FileDescriptor near;
  FileDescriptor far;
};

TEST_F(ControlSocketTest, LinesAreToldApartHoweverTheyArrive) {
  control::LineReader reader(near.get(), 100);
  std::string line;
  EXPECT_TRUE(control::sendAll(far.get(), "one\ntwo\n\nthr"));
  EXPECT_TRUE(reader.next(line));
  EXPECT_EQ(line, "one");
  EXPECT_TRUE(reader.next(line));
  EXPECT_EQ(line, "two");
  EXPECT_TRUE(reader.next(line));
  EXPECT_EQ(line, "");
  EXPECT_TRUE(control::sendAll(far.get(), "ee\n"));
  EXPECT_TRUE(reader.next(line));
  EXPECT_EQ(line, "three");
}

TEST_F(ControlSocketTest, HalfALineAtTheEndIsNone) {
  control::LineReader reader(near.get(), 100);
  EXPECT_TRUE(control::sendAll(far.get(), "half"));
  far.reset();
  std::string line;
  EXPECT_FALSE(reader.next(line));
}

TEST_F(ControlSocketTest, ALineThatIsTooLongEndsTheReading) {
  control::LineReader reader(near.get(), 100);
  EXPECT_TRUE(control::sendAll(far.get(), std::string(101, 'x')));
  std::string line;
  EXPECT_FALSE(reader.next(line));
}

TEST_F(ControlSocketTest, WhatDoesNotFitAtOnceIsSentInPieces) {
  const std::string large(4 << 20, 'x');
  std::thread sender([&] { EXPECT_TRUE(control::sendAll(far.get(), large + '\n')); });
  control::LineReader reader(near.get(), 8 << 20);
  std::string line;
  EXPECT_TRUE(reader.next(line));
  sender.join();
  EXPECT_EQ(line, large);
}

TEST_F(ControlSocketTest, SendingToNobodyFails) {
  near.reset();
  EXPECT_FALSE(control::sendAll(far.get(), "x"));
}

TEST(ControlSocketPathTest, APathThatIsTooLongIsRefused) {
  EXPECT_THROW(control::addressOf("/" + std::string(sizeof(sockaddr_un::sun_path), 'x')),
               ServiceError);
  EXPECT_NO_THROW(control::addressOf("/run/x.sock"));
}

}  // namespace
}  // namespace tulo::test
