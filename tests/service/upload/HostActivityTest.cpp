#include "service/upload/HostActivity.h"

#include <gtest/gtest.h>

#include "tests/support/Connection.h"
#include "tests/support/FakeHost.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class HostActivityTest : public ::testing::Test {
 protected:
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
  const FileDescriptor waiting = waitingClient(path);
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
  { const FileDescriptor leaves = waitingClient(path); }
  ASSERT_TRUE(host.waitForRequests(1));
  EXPECT_EQ(activityOfHost(path), HostActivity::busy);
  gate.open();
  ASSERT_TRUE(host.waitUntilClosed(1));
  EXPECT_EQ(activityOfHost(path), HostActivity::idle);
}

TEST_F(HostActivityTest, ARequestThatWasNotEvenAcceptedIsSeen) {
  const DeafHost host(path);
  { const FileDescriptor leaves = waitingClient(path); }
  EXPECT_EQ(activityOfHost(path), HostActivity::busy);
}

}  // namespace
}  // namespace tulo::test
