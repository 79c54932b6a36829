#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <limits>
#include <thread>

#include "tests/bridge/BridgeFixture.h"
#include "tests/support/CaseName.h"
#include "tests/support/ClientSocket.h"
#include "tests/support/Descriptors.h"
#include "tests/support/Eventually.h"

namespace tulo::test {
namespace {

using platform::JSONObject;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr double aMinute = 60;
const JSONObject ping{{"op", "ping"}};

std::string outcomeOf(double timeout = aMinute, const JSONObject& request = ping) {
  return thrownBy([&] { HostBridge::roundTrip(request, timeout); });
}

// More than the buffers of a socket hold.
JSONObject hugeRequest() {
  return {{"op", std::string(8'000'000, 'x')}};
}

class TransportTest : public BridgeFixture {
 protected:
  // The reply to a request for which the host follows the script.
  static std::string replyOf(const FakeHost& host) {
    const JSONObject reply = HostBridge::roundTrip(ping, aMinute);
    EXPECT_TRUE(host.waitUntilClosed(1));
    const auto found = reply.find("text");
    const auto* text = found == reply.end() ? nullptr : std::get_if<std::string>(&found->second);
    return text != nullptr ? *text : "";
  }

  const std::string path_ = container_.socketPath();
};

TEST_F(TransportTest, TheSocketIsDirectlyInTheContainer) {
  EXPECT_EQ(HostBridge::socketURL().path(), container_.file("fp.sock"));
}

TEST_F(TransportTest, NoContainerIsUnreachable) {
  container_.vanish();
  EXPECT_EQ(thrownBy([] { HostBridge::socketURL(); }), "unreachable");
  EXPECT_EQ(outcomeOf(), "unreachable");
}

TEST_F(TransportTest, NoSocketFileIsUnreachable) {
  EXPECT_EQ(outcomeOf(), "unreachable");
}

TEST_F(TransportTest, ADanglingLinkIsNoSocketFile) {
  std::filesystem::create_symlink(container_.file("nowhere"), path_);
  EXPECT_EQ(outcomeOf(), "unreachable");
}

TEST_F(TransportTest, NobodyListeningIsUnreachable) {
  leaveStaleSocket(path_);
  EXPECT_EQ(outcomeOf(), "unreachable");
}

TEST_F(TransportTest, AFileThatIsNoSocketIsUnreachable) {
  writeFile(path_, "");
  EXPECT_EQ(outcomeOf(), "unreachable");
}

TEST_F(TransportTest, NoDescriptorForASocketIsUnreachable) {
  FakeHost host(path_);
  // With one exchange before: a sanitizer needs a descriptor to look at a type that it has not met.
  host.then(replies(R"({"ok":false})"));
  ASSERT_NE(outcomeOf(), "unreachable");
  ASSERT_TRUE(host.waitUntilClosed(1));
  ASSERT_EQ(thrownBy([] { throw HostBridgeError::unreachable(); }), "unreachable");
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = 0;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const std::string thrown = outcomeOf();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(thrown, "unreachable");
}

TEST_F(TransportTest, SendsOneCompactObjectAndOneLineFeed) {
  FakeHost host(path_);
  host.then(replies(R"({"ok":true})"));
  HostBridge::roundTrip({{"op", "x"}, {"a", nullptr}, {"b", true}, {"c", "p/q \"r\" \u00e4"}},
                        aMinute);
  ASSERT_TRUE(host.waitUntilClosed(1));
  const std::string received = host.exchanges().front().received;
  ASSERT_TRUE(received.ends_with("}\n"));
  EXPECT_EQ(std::ranges::count(received, '\n'), 1);
  EXPECT_EQ(std::ranges::count(received, ' '), 2);  // those inside the string
  EXPECT_NE(received.find(R"("c":"p\/q \"r\" )"), std::string::npos);
  EXPECT_NE(received.find(R"("a":null)"), std::string::npos);
  EXPECT_NE(received.find(R"("b":true)"), std::string::npos);
  EXPECT_EQ(decoded(received),
            (JSONObject{{"op", "x"}, {"a", nullptr}, {"b", true}, {"c", "p/q \"r\" \u00e4"}}));
}

TEST_F(TransportTest, EscapesALineFeedInsideTheRequest) {
  FakeHost host(path_);
  host.then(replies("{}"));
  HostBridge::roundTrip({{"op", "a\nb"}}, aMinute);
  EXPECT_THAT(host.requests(), ElementsAre(R"({"op":"a\nb"})"));
}

TEST_F(TransportTest, NeitherEndsItsWritingNorSendsASecondRequest) {
  FakeHost host(path_);
  host.then(replies("{}"));
  HostBridge::roundTrip(ping, aMinute);
  ASSERT_TRUE(host.waitUntilClosed(1));
  EXPECT_FALSE(host.exchanges().front().halfClosed);
  EXPECT_EQ(host.exchanges().front().received, "{\"op\":\"ping\"}\n");
}

TEST_F(TransportTest, OpensOneConnectionForEachExchangeAndClosesIt) {
  FakeHost host(path_);
  host.then(replies("{}"));
  for (std::size_t i = 1; i <= 3; ++i) {
    HostBridge::roundTrip(ping, aMinute);
    ASSERT_TRUE(host.waitUntilClosed(i));
  }
  EXPECT_EQ(host.connections(), 3U);
}

TEST_F(TransportTest, GivesTheReplyAsAnObject) {
  FakeHost host(path_);
  host.then(replies(R"({"ok":true,"path":"\/a","n":null,"x":2.5,"l":[1],"o":{}})"));
  const JSONObject expected{{"ok", true},
                            {"path", "/a"},
                            {"n", nullptr},
                            {"x", 2.5},
                            {"l", platform::JSONContainer{}},
                            {"o", platform::JSONContainer{}}};
  EXPECT_EQ(HostBridge::roundTrip(ping, aMinute), expected);
}

TEST_F(TransportTest, AcceptsAReplyWithoutALineFeedWhenTheHostCloses) {
  FakeHost host(path_);
  host.then(repliesAndHangsUp(R"({"text":"whole"})"));
  EXPECT_EQ(replyOf(host), "whole");
}

TEST_F(TransportTest, DoesNotWaitForTheHostToClose) {
  FakeHost host(path_);
  host.then(replies(R"({"text":"whole"})"));
  EXPECT_EQ(replyOf(host), "whole");
}

TEST_F(TransportTest, PutsASplitReplyTogether) {
  FakeHost host(path_);
  host.then(repliesInPieces("{\"text\":\"\u00e4\u00f6\"}\n", {1, 1, 3, 5, 1}));
  EXPECT_EQ(replyOf(host), "\u00e4\u00f6");
}

TEST_F(TransportTest, PutsAReplyTogetherWhoseLineFeedComesAlone) {
  FakeHost host(path_);
  const std::string reply = R"({"text":"whole"})";
  host.then(repliesInPieces(reply + "\n", {reply.size()}));
  EXPECT_EQ(replyOf(host), "whole");
}

TEST_F(TransportTest, TakesAHugeReply) {
  FakeHost host(path_);
  const std::string huge(5'000'000, 'x');
  host.then(replies(R"({"text":")" + huge + "\"}"));
  EXPECT_EQ(replyOf(host), huge);
}

// A reply of one write whose line feed is byte `position`, followed by `rest`.
std::string withLineFeedAt(std::size_t position, const std::string& rest) {
  const std::string head = R"({"text":"whole"})";
  return head + std::string(position - head.size() - 1, ' ') + "\n" + rest;
}

TEST_F(TransportTest, ALineFeedThatIsByte4096EndsTheReply) {
  FakeHost host(path_);
  host.then(repliesRaw(withLineFeedAt(4096, "never read")));
  EXPECT_EQ(replyOf(host), "whole");
}

TEST_F(TransportTest, ALineFeedThatIsByte8192EndsTheReply) {
  FakeHost host(path_);
  host.then(repliesRaw(withLineFeedAt(8192, "never read")));
  EXPECT_EQ(replyOf(host), "whole");
}

TEST_F(TransportTest, ALineFeedInsideAChunkDoesNotEndTheReply) {
  FakeHost host(path_);
  host.then(repliesAndHangsUp(withLineFeedAt(4095, "read as well")));
  EXPECT_EQ(outcomeOf(), noReply);
}

TEST_F(TransportTest, BlankSpaceAfterTheLineFeedIsDecodedAlong) {
  FakeHost host(path_);
  host.then(repliesAndHangsUp("{\"text\":\"whole\"}\n \r\n\t"));
  EXPECT_EQ(replyOf(host), "whole");
}

TEST_F(TransportTest, APrettyPrintedReplyInOneChunkIsDecoded) {
  FakeHost host(path_);
  host.then(repliesRaw("{\n  \"text\": \"whole\"\n}\n"));
  EXPECT_EQ(replyOf(host), "whole");
}

// Line feeds inside the chunks, at the end of none but the last.
TEST_F(TransportTest, APrettyPrintedReplyOfSeveralChunksIsDecoded) {
  FakeHost host(path_);
  host.then(repliesRaw("{\n" + std::string(10'000, ' ') + "\n  \"text\": \"whole\"\n}\n"));
  EXPECT_EQ(replyOf(host), "whole");
}

TEST_F(TransportTest, APrettyPrintedReplyWhoseChunkEndsInALineFeedIsNoReply) {
  FakeHost host(path_);
  host.then(repliesInPieces("{\n  \"text\": \"whole\"\n}\n", {2}));
  EXPECT_EQ(outcomeOf(), noReply);
}

TEST_F(TransportTest, AcceptingAndClosingIsNoReply) {
  FakeHost host(path_);
  host.then(hangsUp());
  EXPECT_EQ(outcomeOf(), noReply);
}

struct BadReply {
  const char* title;
  std::string bytes;
};

class BadReplyTest : public TransportTest, public testing::WithParamInterface<BadReply> {};

TEST_P(BadReplyTest, IsNoReply) {
  FakeHost host(path_);
  host.then(repliesAndHangsUp(GetParam().bytes));
  const auto before = openDescriptors();
  EXPECT_EQ(outcomeOf(), noReply);
  ASSERT_TRUE(host.waitUntilClosed(1));
  EXPECT_EQ(openDescriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(Replies, BadReplyTest,
                         testing::ValuesIn<BadReply>({
                             {"LineFeed", "\n"},
                             {"Garbage", "garbage\n"},
                             {"CutShort", "{\"ok\":true"},
                             {"CutShortInAString", "{\"ok\":true,\"path\":\"/tmp"},
                             {"Array", "[{\"ok\":true}]\n"},
                             {"String", "\"ok\"\n"},
                             {"Number", "1\n"},
                             {"True", "true\n"},
                             {"Null", "null\n"},
                             {"TwoObjects", "{\"ok\":true}\n{\"ok\":true}\n"},
                             {"TrailingGarbage", "{\"ok\":true}\nx"},
                             {"TrailingComma", "{\"ok\":true,}\n"},
                             {"SingleQuotes", "{'ok':true}\n"},
                             {"NotUtf8", "{\"ok\":true,\"path\":\"\xff\"}\n"},
                             {"ANulByte", std::string("{\"ok\":true}\0\n", 13)},
                             {"NestedWithoutEnd", std::string(100'000, '[') + "\n"},
                         }),
                         CaseName());

TEST_F(TransportTest, APathOf103BytesConnects) {
  const Container longer = Container::withSocketPathOfLength(103);
  FakeHost host(longer.socketPath());
  host.then(replies("{}"));
  EXPECT_EQ(outcomeOf(), "nothing");
}

TEST_F(TransportTest, APathOf104BytesFailsWithoutAConnection) {
  const Container longer = Container::withSocketPathOfLength(104);
  FakeHost host(longer.socketPath());
  host.then(replies("{}"));
  const auto before = openDescriptors();
  EXPECT_EQ(outcomeOf(), "failed(\"socket path too long: 104 bytes\")");
  EXPECT_EQ(host.connections(), 0U);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TransportTest, ALongPathIsToldWithItsLength) {
  const Container longer = Container::withSocketPathOfLength(131);
  writeFile(longer.socketPath(), "");
  EXPECT_EQ(outcomeOf(), "failed(\"socket path too long: 131 bytes\")");
}

TEST_F(TransportTest, ALongPathWhereNothingIsIsUnreachable) {
  const Container longer = Container::withSocketPathOfLength(131);
  EXPECT_EQ(outcomeOf(), "unreachable");
}

TEST_F(TransportTest, ThePathIsMeasuredInBytes) {
  const TemporaryDirectory directory;
  std::string container = directory.file("");
  while (container.size() + std::string("/fp.sock").size() < 103)
    container += "\u00e4";
  std::filesystem::create_directory(container);
  setCurrentContainer(container);
  const std::string socketPath = container + "/fp.sock";
  writeFile(socketPath, "");
  const std::string tooLong =
      "failed(\"socket path too long: " + std::to_string(socketPath.size()) + " bytes\")";
  EXPECT_EQ(outcomeOf(), socketPath.size() > 103 ? tooLong : "unreachable");
}

TEST_F(TransportTest, ARequestThatIsNotJsonIsTheSerializersError) {
  FakeHost host(path_);
  host.then(replies("{}"));
  const auto before = openDescriptors();
  EXPECT_EQ(outcomeOf(aMinute, {{"op", "\xff"}}), "serializer");
  EXPECT_EQ(outcomeOf(aMinute, {{"\xff", "op"}}), "serializer");
  ASSERT_TRUE(host.waitUntilClosed(2));
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_EQ(host.exchanges().front().received, "");
}

TEST_F(TransportTest, TheHostIsLookedForBeforeTheRequestIsWritten) {
  EXPECT_EQ(outcomeOf(aMinute, {{"op", "\xff"}}), "unreachable");
  leaveStaleSocket(path_);
  EXPECT_EQ(outcomeOf(aMinute, {{"op", "\xff"}}), "unreachable");
}

TEST_F(TransportTest, AHostThatClosesWhileTheRequestIsSentIsUnreachable) {
  FakeHost host(path_);
  host.then(hangsUpWithoutReading());
  const auto before = openDescriptors();
  EXPECT_EQ(outcomeOf(aMinute, hugeRequest()), "unreachable");
  ASSERT_TRUE(host.waitUntilClosed(1));
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TransportTest, SendsAHugeRequestWhole) {
  FakeHost host(path_);
  host.then(replies("{}"));
  EXPECT_EQ(outcomeOf(aMinute, hugeRequest()), "nothing");
  EXPECT_EQ(decoded(host.requests().front()), hugeRequest());
}

TEST_F(TransportTest, AHostThatReadsNothingIsUnreachableAfterTheTimeout) {
  FakeHost host(path_);
  host.then(readsNothing());
  EXPECT_EQ(outcomeOf(1, hugeRequest()), "unreachable");
}

TEST_F(TransportTest, ASilentHostIsNoReplyAfterTheTimeout) {
  FakeHost host(path_);
  host.then(staysSilent());
  EXPECT_EQ(outcomeOf(1), noReply);
}

TEST_F(TransportTest, AHostThatNeverAcceptsIsNoReplyAfterTheTimeout) {
  const DeafHost host(path_);
  const auto before = openDescriptors();
  EXPECT_EQ(outcomeOf(1), noReply);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TransportTest, AReplyThatIsNotCompleteByTheTimeoutIsNoReply) {
  FakeHost host(path_);
  host.then(repliesRaw("{\"ok\":"));
  EXPECT_EQ(outcomeOf(1), noReply);
}

TEST_F(TransportTest, AReplyThatOnlyLacksItsLineFeedByTheTimeoutIsTaken) {
  FakeHost host(path_);
  host.then(repliesRaw("{\"ok\":true}"));
  EXPECT_EQ(outcomeOf(1), "nothing");
}

struct TimeoutCase {
  const char* title;
  double timeout;
  std::int64_t seconds;
};

class TimeoutTest : public TransportTest, public testing::WithParamInterface<TimeoutCase> {};

TEST_P(TimeoutTest, IsTruncatedAndSetForBothDirections) {
  Gate gate;
  FakeHost host(path_);
  host.then(repliesAfter(gate, "{}"));
  std::thread caller([] { EXPECT_EQ(outcomeOf(GetParam().timeout), "nothing"); });
  EXPECT_TRUE(host.waitForRequests(1));
  const auto timeouts = timeoutsOfClientOf(path_);
  gate.open();
  caller.join();
  ASSERT_TRUE(timeouts);
  const std::int64_t microseconds = GetParam().seconds * 1'000'000;
  EXPECT_EQ(*timeouts, (SocketTimeouts{microseconds, microseconds}));
}

INSTANTIATE_TEST_SUITE_P(Timeouts, TimeoutTest,
                         testing::ValuesIn<TimeoutCase>({
                             {"HalfASecondIsNone", 0.5, 0},
                             {"AlmostASecondIsNone", 0.999, 0},
                             {"ZeroIsNone", 0, 0},
                             {"MinusHalfASecondIsNone", -0.5, 0},
                             {"TwoPointNineIsTwo", 2.9, 2},
                             {"ThreeHundred", 300, 300},
                         }),
                         CaseName());

TEST(WholeSecondsTest, TruncatesTowardZero) {
  EXPECT_EQ(HostBridge::wholeSeconds(2.9), 2);
  EXPECT_EQ(HostBridge::wholeSeconds(-2.9), -2);
  EXPECT_EQ(HostBridge::wholeSeconds(0.5), 0);
  EXPECT_EQ(HostBridge::wholeSeconds(1e18), 1'000'000'000'000'000'000);
  EXPECT_EQ(HostBridge::wholeSeconds(-9223372036854775808.0),
            std::numeric_limits<std::int64_t>::min());
}

TEST(WholeSecondsDeathTest, AnythingElseStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(HostBridge::wholeSeconds(std::nan("")), testing::KilledBySignal(SIGABRT), ".+");
  EXPECT_EXIT(HostBridge::wholeSeconds(HUGE_VAL), testing::KilledBySignal(SIGABRT), ".+");
  EXPECT_EXIT(HostBridge::wholeSeconds(-HUGE_VAL), testing::KilledBySignal(SIGABRT), ".+");
  EXPECT_EXIT(HostBridge::wholeSeconds(9223372036854775808.0), testing::KilledBySignal(SIGABRT),
              ".+");
  EXPECT_EXIT(HostBridge::wholeSeconds(-1e19), testing::KilledBySignal(SIGABRT), ".+");
}

TEST_F(TransportTest, ATimeoutThatIsNoNumberMattersOnlyOnceConnected) {
  EXPECT_EQ(outcomeOf(std::nan("")), "unreachable");
}

// Sends a thread signals, whose handler does nothing but count.
class Interrupter {
 public:
  Interrupter() {
    handled = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { ++handled; };
    ::sigaction(SIGUSR1, &action, &before_);
  }
  ~Interrupter() { ::sigaction(SIGUSR1, &before_, nullptr); }
  Interrupter(const Interrupter&) = delete;
  Interrupter& operator=(const Interrupter&) = delete;

  // Several times, in a call that waits.
  static void interrupt(std::thread& thread) {
    const int before = handled;
    EXPECT_TRUE(eventually([&] {
      ::pthread_kill(thread.native_handle(), SIGUSR1);
      return handled >= before + 5;
    }));
  }

 private:
  static inline std::atomic<int> handled = 0;
  struct sigaction before_ {};
};

TEST_F(TransportTest, AnInterruptedReceiveWaitsOnForTheReply) {
  const Interrupter interrupter;
  Gate mayReply;
  FakeHost host(path_);
  host.then(repliesAfter(mayReply, R"({"text":"whole"})"));
  std::string thrown;
  std::thread caller([&] { thrown = outcomeOf(); });
  ASSERT_TRUE(host.waitForRequests(1));
  Interrupter::interrupt(caller);
  mayReply.open();
  caller.join();
  EXPECT_EQ(thrown, "nothing");
}

TEST_F(TransportTest, AnInterruptedSendSendsTheRest) {
  const Interrupter interrupter;
  Gate mayRead;
  FakeHost host(path_);
  host.then({[&](FakeHost::Peer& peer) {
    peer.wait(mayRead);
    peer.readRequest();
    peer.send("{}\n");
  }});
  std::string thrown;
  std::thread caller([&] { thrown = outcomeOf(aMinute, hugeRequest()); });
  ASSERT_TRUE(eventually([&] { return host.connections() == 1; }));
  Interrupter::interrupt(caller);
  mayRead.open();
  caller.join();
  EXPECT_EQ(thrown, "nothing");
  EXPECT_EQ(host.requests().front(), platform::JSONSerialization::data(hugeRequest()));
}

// Whether the descriptor is connected to the socket of that path.
bool leadsTo(int descriptor, const std::string& path) {
  sockaddr_un peer{};
  socklen_t size = sizeof peer;
  return ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
         peer.sun_family == AF_UNIX && path == peer.sun_path;
}

TEST_F(TransportTest, AProgramThatIsStartedDoesNotGetTheSocket) {
  Gate mayReply;
  FakeHost host(path_);
  host.then(repliesAfter(mayReply, "{}"));
  std::thread caller([] { outcomeOf(); });
  ASSERT_TRUE(host.waitForRequests(1));
  int found = 0;
  for (int descriptor = 0; descriptor < 4096; ++descriptor) {
    if (!leadsTo(descriptor, path_)) continue;
    ++found;
    EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
  }
  EXPECT_EQ(found, 1);
  mayReply.open();
  caller.join();
}

TEST_F(TransportTest, ManyExchangesAtOnceGetTheirOwnReplies) {
  FakeHost host(path_);
  host.then(repliesWith([](const std::string& request) {
    const JSONObject object = decoded(request.substr(0, request.size() - 1));
    return platform::JSONSerialization::data({{"echo", object.at("op")}});
  }));
  std::atomic<int> wrong = 0;
  std::vector<std::thread> callers;
  for (int i = 0; i < 16; ++i)
    callers.emplace_back([&, i] {
      for (int round = 0; round < 10; ++round) {
        const std::string id = std::to_string(i) + "/" + std::to_string(round);
        if (HostBridge::roundTrip({{"op", id}}, aMinute) != JSONObject{{"echo", id}}) ++wrong;
      }
    });
  for (std::thread& caller : callers)
    caller.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(host.connections(), 160U);
}

}  // namespace
}  // namespace tulo::test
