// The socket: framing, bad requests, many peers, faults; and who may serve a container at all.

#include <gmock/gmock.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "host/base/HostError.h"
#include "platform/linux/FileDescriptor.h"
#include "tests/host/server/ServerFixture.h"
#include "tests/support/CaseName.h"
#include "tests/support/Descriptors.h"
#include "tests/support/Eventually.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

TEST_F(HostServerTest, TheReplyIsOneLineAndThenTheConnectionCloses) {
  startHost();
  EXPECT_EQ(exchange("{\"op\":\"status\"}\n"), json({{"accounts",
                                                      {{{"account", "primary"},
                                                        {"folders", 0},
                                                        {"items", 0},
                                                        {"root", fs::canonical(root_).string()},
                                                        {"signed_in", true}}}},
                                                     {"ok", true}})
                                                       .dump() +
                                                   "\n");
}

TEST_F(HostServerTest, ARequestMayComeInPieces) {
  startHost();
  const FileDescriptor fd = connect();
  for (const char byte : fetch)
    say(fd.get(), {&byte, 1});
  say(fd.get(), "\n");
  EXPECT_EQ(kindOf(json::parse(received(fd.get()))), "not_found");
}

TEST_F(HostServerTest, ARequestWithoutLineFeedEndsWithTheStream) {
  startHost();
  const FileDescriptor fd = connect();
  say(fd.get(), fetch);
  ::shutdown(fd.get(), SHUT_WR);
  EXPECT_EQ(kindOf(json::parse(received(fd.get()))), "not_found");
}

TEST_F(HostServerTest, WhatFollowsTheLineFeedIsIgnored) {
  startHost();
  EXPECT_EQ(kindOf(json::parse(exchange(fetch + "\n" + fetch + "\n"))), "not_found");
}

struct WireCase {
  std::string title;
  std::string request;
};

class HostBadRequestTest : public HostTest, public testing::WithParamInterface<WireCase> {};

TEST_P(HostBadRequestTest, IsAnsweredAndTheHostLivesOn) {
  startHost();
  const std::string reply = exchange(GetParam().request);
  ASSERT_FALSE(reply.empty());
  EXPECT_EQ(reply.find('\n'), reply.size() - 1);
  EXPECT_EQ(kindOf(json::parse(reply)), "bad_request");
  EXPECT_EQ(createFolder("after")["ok"], true);
}

INSTANTIATE_TEST_SUITE_P(
    Wire, HostBadRequestTest,
    testing::Values(WireCase{"EmptyLine", "\n"}, WireCase{"Garbage", "garbage\n"},
                    WireCase{"Binary", std::string("\0\xFF\x80", 3) + "\n"},
                    WireCase{"Array", "[1]\n"}, WireCase{"UnknownOperation", "{\"op\":\"x\"}\n"},
                    WireCase{"MissingKeys", "{\"op\":\"modify\"}\n"},
                    WireCase{"SlightlyTooLong", std::string((1 << 20) + 1, ' ') + "\n"},
                    WireCase{"MuchTooLong", std::string(20 << 20, 'x') + "\n"}),
    CaseName());

TEST_F(HostServerTest, TheLongestRequestIsAnswered) {
  startHost();
  std::string request = fetch;
  request.resize(1 << 20, ' ');
  EXPECT_EQ(kindOf(json::parse(exchange(request + "\n"))), "not_found");
}

TEST_F(HostServerTest, ASilentPeerHoldsUpNobodyAndIsLetGo) {
  auto impatient = options();
  impatient.limits.patience = milliseconds(200);
  startHost(impatient);
  std::vector<FileDescriptor> silent;
  for (int i = 0; i < 100; ++i)
    silent.push_back(connect());
  EXPECT_EQ(createFolder("d")["ok"], true);
  for (const FileDescriptor& fd : silent)
    EXPECT_EQ(received(fd.get()), "");
}

TEST_F(HostServerTest, MorePeersThanPlacesAreServedInTurn) {
  auto small = options();
  small.limits.connections = 4;
  small.limits.workers = 2;
  startHost(small);
  std::vector<std::thread> peers;
  std::atomic<int> served = 0;
  for (int i = 0; i < 30; ++i) {
    peers.emplace_back([&, i] {
      if (createFolder("d" + std::to_string(i)).value("ok", false)) ++served;
    });
  }
  for (std::thread& peer : peers)
    peer.join();
  EXPECT_EQ(served, 30);
  EXPECT_EQ(rows().size(), 30U);
}

TEST_F(HostServerTest, ASlowRequestHoldsUpNoOther) {
  makeFile("a", "x");
  auto slow = options();
  slow.delays.push_back({"fetch", std::chrono::hours(1)});
  startHost(slow);
  const FileDescriptor waiting = connect();
  say(waiting.get(), R"({"op":"fetch","account":"primary","ulid":")" + row("a").ulid + "\"}\n");
  EXPECT_EQ(createFolder("d")["ok"], true);
  // A stop cuts the delay short and lets the request end.
  stopHost();
  EXPECT_EQ(json::parse(received(waiting.get()))["ok"], true);
}

TEST_F(HostServerTest, ManyMutationsAtOnceLoseNothing) {
  startHost();
  std::vector<std::string> staged;
  for (int i = 0; i < 40; ++i)
    staged.push_back(stage(std::to_string(i)));
  std::vector<std::thread> peers;
  for (int i = 0; i < 40; ++i) {
    peers.emplace_back([&, i] {
      ask({{"op", "create"}, {"name", "same"}, {"path", staged[static_cast<std::size_t>(i)]}});
    });
  }
  for (std::thread& peer : peers)
    peer.join();
  std::set<std::string> contents;
  const IndexReader index(inContainer("state.db"));
  for (const std::string& ulid : index.column("SELECT ulid FROM items WHERE name = 'same'")) {
    contents.insert(readFile(ask({{"op", "fetch"}, {"ulid", ulid}})["path"]));
  }
  EXPECT_EQ(contents.size(), 40U);
}

TEST_F(HostServerTest, PeersThatGoAwayLeaveNothingBehind) {
  startHost();
  createFolder("warm-up");
  const std::size_t before = openDescriptors();
  for (int i = 0; i < 50; ++i) {
    connect();
    say(connect().get(), fetch.substr(0, 10));
    say(connect().get(), fetch + "\n");
  }
  EXPECT_TRUE(eventually([&] { return openDescriptors() <= before; }));
}

TEST_F(HostServerTest, TheSocketIsForItsUserAlone) {
  startHost();
  struct stat info;
  ASSERT_EQ(::stat(inContainer("fp.sock").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600U);
  ASSERT_EQ(::stat(container_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700U);
}

TEST_F(HostServerTest, AnotherUserIsRefusedEvenWhereThePermissionsLetHimThrough) {
  if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
  startHost();
  ::chmod(directory_.path().c_str(), 0755);
  ::chmod(container_.c_str(), 0755);
  ::chmod(inContainer("fp.sock").c_str(), 0666);
  const pid_t pid = ::fork();
  if (pid == 0) {
    constexpr uid_t nobody = 65534;
    if (::setgroups(0, nullptr) != 0 || ::setresuid(nobody, nobody, nobody) != 0) ::_exit(2);
    const FileDescriptor fd = connected(inContainer("fp.sock"));
    char byte = 0;
    ::_exit(fd && ::recv(fd.get(), &byte, 1, 0) == 0 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(HostServerTest, AStaleSocketIsReplaced) {
  fs::create_directory(container_);
  fs::permissions(container_, fs::perms::owner_all);
  {
    const FileDescriptor dead(::socket(AF_UNIX, SOCK_STREAM, 0));
    ASSERT_EQ(SocketAddress::of(inContainer("fp.sock"))->bind(dead.get()), 0);
  }
  startHost();
  EXPECT_EQ(createFolder("d")["ok"], true);
}

TEST_F(HostServerTest, AFileInThePlaceOfTheSocketIsLeftAlone) {
  fs::create_directory(container_);
  fs::permissions(container_, fs::perms::owner_all);
  writeFile(inContainer("fp.sock"), "precious");
  EXPECT_THROW(startHost(), host::StartError);
  EXPECT_EQ(readFile(inContainer("fp.sock")), "precious");
}

TEST_F(HostServerTest, StoppingRemovesTheSocket) {
  startHost();
  stopHost();
  EXPECT_FALSE(fs::exists(inContainer("fp.sock")));
}

TEST_F(HostServerTest, APathThatIsTooLongForTheSocketIsExplained) {
  container_ = directory_.file(std::string(103 - directory_.path().size() - 9, 'c'));
  startHost();
  EXPECT_EQ(createFolder("d")["ok"], true) << "103 bytes are not too many";
  stopHost();
  fs::remove_all(container_);
  container_ += "c";
  try {
    startHost();
    FAIL() << "started";
  } catch (const host::StartError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("has 104 bytes, more than 103"));
  }
}

}  // namespace
}  // namespace tulo::test
