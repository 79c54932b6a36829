#include "host/server/Faults.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>

#include "host/base/HostError.h"
#include "tests/host/server/ServerFixture.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

TEST(FaultsTest, WhatCannotBeReadIsExplained) {
  for (const std::string text : {"", "fetch", "fetch=", "=quota", "fetsch=quota", "fetch=quota:0",
                                 "fetch=quota:x", "fetch=quota:-1", "fetch=:1"}) {
    EXPECT_THROW(host::parseFault(text), host::StartError) << text;
  }
  for (const std::string text :
       {"", "fetch", "fetch=", "fetch=x", "fetch=-1", "fetch=1s", "fetch=99999999999999"}) {
    EXPECT_THROW(host::parseDelay(text), host::StartError) << text;
  }
  EXPECT_EQ(host::parseFault("fetch=a:b:3").kind, "a:b");
  EXPECT_EQ(host::parseDelay("any=0").time, milliseconds(0));
}

TEST(FaultsTest, AFaultIsTakenAsOftenAsWasAskedFor) {
  host::Faults faults;
  faults.add(host::parseFault("fetch=quota:2"));
  faults.add(host::parseFault("any=network"));
  EXPECT_EQ(faults.take("fetch"), "quota");
  EXPECT_EQ(faults.take("create"), "network");
  EXPECT_EQ(faults.take("fetch"), "quota");
  EXPECT_EQ(faults.take("fetch"), "network");
  faults.clear();
  EXPECT_FALSE(faults.take("fetch"));
}

TEST(FaultsTest, DelaysOfAllRulesThatConcernARequestAddUp) {
  host::Faults faults;
  faults.add(host::parseDelay("fetch=1"));
  faults.add(host::parseDelay("fetch=2"));
  faults.add(host::parseDelay("any=10"));
  EXPECT_EQ(faults.delay("fetch"), milliseconds(12)) << "the last of one operation counts";
  EXPECT_EQ(faults.delay("create"), milliseconds(10));
}

class HostFaultTest : public HostServerTest {
 protected:
  std::string fetchA() {
    return exchange(R"({"op":"fetch","account":"primary","ulid":")" + row("a").ulid + "\"}\n");
  }
  void startWith(const std::string& fault) {
    makeFile("a", "x");
    auto faulty = options();
    faulty.faults.push_back(host::parseFault(fault));
    startHost(faulty);
  }
};

TEST_F(HostFaultTest, AnyKindCanBeAskedForSoManyTimes) {
  startWith("fetch=rate_limited:2");
  EXPECT_EQ(kindOf(json::parse(fetchA())), "rate_limited");
  EXPECT_EQ(createFolder("d")["ok"], true) << "other operations go on";
  EXPECT_EQ(kindOf(json::parse(fetchA())), "rate_limited");
  EXPECT_EQ(json::parse(fetchA())["ok"], true);
}

TEST_F(HostFaultTest, WithoutANumberItLasts) {
  startWith("any=network");
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(kindOf(json::parse(fetchA())), "network");
  EXPECT_EQ(kindOf(create("b", "x")), "network");
  EXPECT_THAT(stagedCopies(), testing::IsEmpty());
  EXPECT_FALSE(fs::exists(inRoot("b")));
}

TEST_F(HostFaultTest, Garbage) {
  startWith("fetch=garbage:1");
  EXPECT_FALSE(json::accept(fetchA()));
}

TEST_F(HostFaultTest, HangUp) {
  startWith("fetch=hangup:1");
  EXPECT_EQ(fetchA(), "");
}

TEST_F(HostFaultTest, SilentUntilThePeerGoes) {
  startWith("fetch=silent:1");
  const FileDescriptor fd = connect();
  say(fd.get(), fetch + "\n");
  EXPECT_EQ(createFolder("d")["ok"], true);
  char byte = 0;
  EXPECT_EQ(::recv(fd.get(), &byte, 1, MSG_DONTWAIT), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST_F(HostFaultTest, Huge) {
  startWith("fetch=huge:1");
  const std::string reply = fetchA();
  EXPECT_GT(reply.size(), std::size_t{8} << 20);
  EXPECT_EQ(readFile(json::parse(reply)["path"]), "x");
}

TEST_F(HostFaultTest, DropReplyHasDoneTheWork) {
  startWith("create=drop-reply:1");
  const std::string path = stage("y");
  EXPECT_EQ(
      exchange(
          json{{"op", "create"}, {"account", "primary"}, {"name", "b"}, {"path", path}}.dump() +
          "\n"),
      "");
  EXPECT_EQ(readFile(inRoot("b")), "y");
}

TEST_F(HostFaultTest, NoResultAndNoKind) {
  startWith("fetch=no-result:1");
  runningHost().faults().add(host::parseFault("fetch=no-kind:1"));
  EXPECT_EQ(json::parse(fetchA()), (json{{"ok", true}}));
  const json reply = json::parse(fetchA());
  EXPECT_EQ(reply["ok"], false);
  EXPECT_TRUE(reply["error"].is_string());
  EXPECT_FALSE(reply.contains("kind"));
}

}  // namespace
}  // namespace tulo::test
