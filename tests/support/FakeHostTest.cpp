#include "tests/support/FakeHost.h"

#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/Descriptors.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

using testing::ElementsAre;

// The simplest of peers, with as little cleverness as possible.
class Peer {
 public:
  explicit Peer(const std::string& path) : descriptor_(::socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    isConnected = ::connect(descriptor_, generic, sizeof address) == 0;
  }
  ~Peer() { ::close(descriptor_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  void send(const std::string& text) const {
    EXPECT_EQ(::send(descriptor_, text.data(), text.size(), 0), ssize_t(text.size()));
  }
  void endWriting() const { ::shutdown(descriptor_, SHUT_WR); }

  // What one read gives: nothing at the end of the connection.
  std::string read() const {
    char buffer[4096];
    const auto count = ::recv(descriptor_, buffer, sizeof buffer, 0);
    return {buffer, count > 0 ? static_cast<std::size_t>(count) : 0};
  }
  std::string readExactly(std::size_t count) const {
    std::string all;
    while (all.size() < count) {
      const std::string some = read();
      if (some.empty()) break;
      all += some;
    }
    return all;
  }
  bool hasSomethingToRead() const {
    pollfd waiting{descriptor_, POLLIN, 0};
    return ::poll(&waiting, 1, 0) == 1;
  }

  bool isConnected = false;

 private:
  int descriptor_;
};

class FakeHostTest : public testing::Test {
 protected:
  TemporaryDirectory directory_;
  const std::string path_ = directory_.file("fp.sock");
};

TEST_F(FakeHostTest, RecordsTheRequestAndReplies) {
  FakeHost host(path_);
  host.then(replies("{}"));
  const Peer peer(path_);
  peer.send("hello\n");
  EXPECT_EQ(peer.read(), "{}\n");
  EXPECT_THAT(host.requests(), ElementsAre("hello"));
}

TEST_F(FakeHostTest, KeepsTheConnectionOpenAfterItsReply) {
  FakeHost host(path_);
  host.then(replies("{}"));
  const Peer peer(path_);
  peer.send("hello\n");
  peer.read();
  EXPECT_FALSE(peer.hasSomethingToRead());
  EXPECT_FALSE(host.exchanges().front().closed);
}

TEST_F(FakeHostTest, RecordsWhatComesAfterTheRequest) {
  FakeHost host(path_);
  host.then(replies("{}"));
  {
    const Peer peer(path_);
    peer.send("one\n");
    peer.read();
    peer.send("two\n");
  }
  ASSERT_TRUE(host.waitUntilClosed(1));
  EXPECT_EQ(host.exchanges().front().received, "one\ntwo\n");
}

TEST_F(FakeHostTest, NoticesAPeerThatEndsItsWriting) {
  FakeHost host(path_);
  Gate gate;
  host.then({[&](FakeHost::Peer& peer) { peer.wait(gate); },
             [](FakeHost::Peer& peer) { peer.readRequest(); },
             [](FakeHost::Peer& peer) { peer.send("x"); }});
  const Peer peer(path_);
  peer.send("hello\n");
  peer.endWriting();
  gate.open();
  EXPECT_EQ(peer.read(), "x");
  EXPECT_TRUE(host.exchanges().front().halfClosed);
}

TEST_F(FakeHostTest, DoesNotTakeAnOpenPeerForOneThatEndedItsWriting) {
  FakeHost host(path_);
  host.then(replies("{}"));
  const Peer peer(path_);
  peer.send("hello\n");
  peer.read();
  EXPECT_FALSE(host.exchanges().front().halfClosed);
}

TEST_F(FakeHostTest, SplitsAReplyAtTheGivenCounts) {
  FakeHost host(path_);
  host.then(repliesInPieces("abcdef", {1, 3}));
  const Peer peer(path_);
  peer.send("hello\n");
  EXPECT_EQ(peer.read(), "a");
  EXPECT_EQ(peer.read(), "bcd");
  EXPECT_EQ(peer.read(), "ef");
}

TEST_F(FakeHostTest, RepliesOnlyWhenReleased) {
  Gate gate;
  FakeHost host(path_);
  host.then(repliesAfter(gate, "late"));
  const Peer peer(path_);
  peer.send("hello\n");
  ASSERT_TRUE(host.waitForRequests(1));
  EXPECT_FALSE(peer.hasSomethingToRead());
  gate.open();
  EXPECT_EQ(peer.read(), "late\n");
}

TEST_F(FakeHostTest, HangsUpInMidReply) {
  FakeHost host(path_);
  host.then(repliesAndHangsUp("{\"ok\":"));
  const Peer peer(path_);
  peer.send("hello\n");
  EXPECT_EQ(peer.read(), "{\"ok\":");
  EXPECT_EQ(peer.read(), "");
}

TEST_F(FakeHostTest, HangsUpWithoutAWord) {
  FakeHost host(path_);
  host.then(hangsUp());
  const Peer peer(path_);
  peer.send("hello\n");
  EXPECT_EQ(peer.read(), "");
}

TEST_F(FakeHostTest, SendsHugeReplies) {
  const std::string huge(5'000'000, 'x');
  FakeHost host(path_);
  host.then(repliesRaw(huge));
  const Peer peer(path_);
  peer.send("hello\n");
  EXPECT_EQ(peer.readExactly(huge.size()), huge);
}

TEST_F(FakeHostTest, MakesRepliesFromRequests) {
  FakeHost host(path_);
  host.then(repliesWith([](const std::string& request) { return "echo " + request; }));
  const Peer peer(path_);
  peer.send("hello\n");
  EXPECT_EQ(peer.readExactly(12), "echo hello\n\n");
}

TEST_F(FakeHostTest, ServesConnectionsIndependentlyAndInOrder) {
  Gate gate;
  FakeHost host(path_);
  host.then(repliesAfter(gate, "first")).then(replies("second"));
  const Peer first(path_);
  first.send("1\n");
  ASSERT_TRUE(host.waitForRequests(1));
  const Peer second(path_);
  second.send("2\n");
  const Peer third(path_);
  third.send("3\n");
  EXPECT_EQ(second.read(), "second\n");
  EXPECT_EQ(third.read(), "second\n");
  gate.open();
  EXPECT_EQ(first.read(), "first\n");
  EXPECT_THAT(host.requests(), ElementsAre("1", "2", "3"));
}

TEST_F(FakeHostTest, ReleasesEverythingAtItsEndWhateverItsScriptsWaitFor) {
  const auto before = openDescriptors();
  Gate never;
  {
    FakeHost host(path_);
    host.then(repliesAfter(never, "")).then(readsNothing()).then(staysSilent());
    const Peer first(path_);
    const Peer second(path_);
    const Peer third(path_);
    EXPECT_TRUE(eventually([&] { return host.connections() == 3; }));
  }
  EXPECT_LE(openDescriptors(), before);
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(FakeHostTest, HasNoDescriptorOfAConnectionThatIsOver) {
  FakeHost host(path_);
  host.then(replies("{}"));
  const auto before = openDescriptors();
  {
    const Peer peer(path_);
    peer.send("hello\n");
    peer.read();
  }
  ASSERT_TRUE(host.waitUntilClosed(1));
  EXPECT_LE(openDescriptors(), before);
}

TEST_F(FakeHostTest, ADeafHostLetsPeersConnectAndSaysNothing) {
  const DeafHost host(path_);
  const Peer peer(path_);
  EXPECT_TRUE(peer.isConnected);
  peer.send("hello\n");
  EXPECT_FALSE(peer.hasSomethingToRead());
}

TEST_F(FakeHostTest, AStaleSocketIsThereAndRefuses) {
  leaveStaleSocket(path_);
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_FALSE(Peer(path_).isConnected);
}

}  // namespace
}  // namespace tulo::test
