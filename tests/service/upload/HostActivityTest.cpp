#include "service/upload/HostActivity.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/linux/FileDescriptor.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class HostActivityTest : public ::testing::Test {
 protected:
  // One that asks the host for something.
  FileDescriptor client() const {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    EXPECT_EQ(::send(socket.get(), "{}\n", 3, 0), 3);
    return socket;
  }

  TemporaryDirectory directory;
  const std::string path = directory.file("fp.sock");
};

TEST_F(HostActivityTest, WithoutASocketThereIsNoHost) {
  EXPECT_EQ(activityOfHost(path), HostActivity::absent);
}

TEST_F(HostActivityTest, ASocketThatNobodyListensOnIsNoHost) {
  leaveStaleSocket(path);
  EXPECT_EQ(activityOfHost(path), HostActivity::absent);
}

TEST_F(HostActivityTest, AFileThatIsNoSocketSaysNothing) {
  writeFile(path, "");
  EXPECT_EQ(activityOfHost(path), HostActivity::unknown);
}

TEST_F(HostActivityTest, AHostThatNobodyHasLeftIsIdle) {
  FakeHost host(path);
  EXPECT_EQ(activityOfHost(path), HostActivity::idle);
  const FileDescriptor waiting = client();
  ASSERT_TRUE(host.waitForRequests(1));
  EXPECT_EQ(activityOfHost(path), HostActivity::idle);
}

TEST_F(HostActivityTest, ARequestThatNobodyWaitsForAnyMoreIsSeenUntilItEnds) {
  Gate gate;
  FakeHost host(path);
  host.then({[&](FakeHost::Peer& peer) {
    peer.readRequest();
    // Goes on although the peer is gone.
    gate.wait();
    peer.hangUp();
  }});
  { const FileDescriptor leaves = client(); }
  ASSERT_TRUE(host.waitForRequests(1));
  EXPECT_EQ(activityOfHost(path), HostActivity::busy);
  gate.open();
  ASSERT_TRUE(host.waitUntilClosed(1));
  EXPECT_EQ(activityOfHost(path), HostActivity::idle);
}

TEST_F(HostActivityTest, ARequestThatWasNotEvenAcceptedIsSeen) {
  const DeafHost host(path);
  { const FileDescriptor leaves = client(); }
  EXPECT_EQ(activityOfHost(path), HostActivity::busy);
}

}  // namespace
}  // namespace tulo::test
