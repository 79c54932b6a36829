// The host as a process: how it starts, how it ends, and what a sudden end leaves behind.

#include <gmock/gmock.h>
#include <csignal>
#include <filesystem>
#include <set>
#include <thread>

#include "tests/host/HostFixture.h"
#include "tests/host/HostProcess.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

class HostProcessTest : public HostTest {
 protected:
  std::vector<std::string> arguments() const {
    return {"--root", root_, "--container", container_};
  }
  Ended tulo(std::vector<std::string> more) const {
    more.insert(more.begin(), "host");
    more.insert(more.end(), {"--container", container_});
    return runTulo(more);
  }
};

TEST_F(HostProcessTest, EndsCleanlyWhenItIsTerminatedOrInterrupted) {
  for (const int signal : {SIGTERM, SIGINT}) {
    HostProcess host(arguments());
    ASSERT_TRUE(host.isServing());
    EXPECT_TRUE(fs::exists(inContainer("fp.sock")));
    EXPECT_EQ(host.end(signal), 0);
    EXPECT_FALSE(fs::exists(inContainer("fp.sock")));
  }
}

TEST_F(HostProcessTest, AKilledHostIsSucceededByANewOne) {
  makeFile("a", "x");
  std::string ulid;
  {
    HostProcess host(arguments());
    ASSERT_TRUE(host.isServing());
    ulid = create("b", "y")["ulid"];
    host.end(SIGKILL);
  }
  EXPECT_THAT(paths(), ElementsAre("a", "b")) << "what a killed host has left can be read";
  HostProcess host(arguments());
  ASSERT_TRUE(host.isServing());
  EXPECT_EQ(row("b").ulid, ulid);
  EXPECT_EQ(createFolder("c")["ok"], true);
}

// Kills the host while it works, again and again; each time every acknowledged change must be
// there.
TEST_F(HostProcessTest, KillingItAtAnyMomentLosesNothingThatWasAcknowledged) {
  // What each item may hold: its last acknowledged contents, or those that were just on the way.
  std::map<std::string, std::set<std::string>> acknowledged;
  for (int round = 0; round < 8; ++round) {
    HostProcess host(arguments());
    ASSERT_TRUE(host.isServing());
    for (const auto& [ulid, contents] : acknowledged) {
      const json reply = ask({{"op", "fetch"}, {"ulid", ulid}});
      ASSERT_EQ(reply["ok"], true) << reply << " in round " << round;
      EXPECT_TRUE(contents.contains(readFile(reply["path"])));
    }
    EXPECT_FALSE(fs::exists(inRoot(".tulo-host"))) << "unfinished work is cleared";
    std::thread killer([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(20 + 15 * round));
      host.end(SIGKILL);
    });
    try {
      for (int i = 0;; ++i) {
        const std::string text = std::to_string(round) + "." + std::to_string(i);
        const std::string ulid = create("f" + std::to_string(i % 3), text).value("ulid", "");
        if (ulid.empty()) break;
        const std::string changed = text + " changed";
        acknowledged[ulid] = {text, changed};
        if (ask({{"op", "modify"},
                 {"ulid", ulid},
                 {"is_folder", false},
                 {"name", "g" + std::to_string(i % 3)},
                 {"path", stage(changed)}})
                .value("ok", false)) {
          acknowledged[ulid] = {changed};
        }
      }
    } catch (const std::exception&) {
      // The host is gone.
    }
    killer.join();
  }
  EXPECT_FALSE(acknowledged.empty());
}

TEST_F(HostProcessTest, ASecondOneOnTheContainerSaysWhy) {
  HostProcess host(arguments());
  ASSERT_TRUE(host.isServing());
  const Ended second = runTulo({"host", "serve", "--root", root_, "--container", container_});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.output, "");
  EXPECT_THAT(second.errors, HasSubstr("already serves the container " + container_));
}

TEST_F(HostProcessTest, ItsCommandsReachTheRunningHost) {
  makeFile("a b", "x");
  HostProcess host(arguments());
  ASSERT_TRUE(host.isServing());
  EXPECT_EQ(tulo({"lock", "a b", "--user", "7"}).status, 0);
  EXPECT_EQ(row("a b").lockedBy, 7);
  EXPECT_EQ(tulo({"unlock", "a b"}).status, 0);
  EXPECT_FALSE(row("a b").lockedBy);
  const Ended unknown = tulo({"lock", "none", "--user", "7"});
  EXPECT_EQ(unknown.status, 1);
  EXPECT_THAT(unknown.errors, HasSubstr("there is no \"none\""));
  EXPECT_EQ(tulo({"logout"}).status, 0);
  EXPECT_EQ(kindOf(createFolder("d")), "unauthorized");
  EXPECT_THAT(tulo({"status"}).output, HasSubstr("0 folders, 1 files, signed out"));
  EXPECT_EQ(tulo({"login"}).status, 0);
  EXPECT_EQ(createFolder("d")["ok"], true);
  const json status = json::parse(tulo({"status", "--json"}).output);
  EXPECT_EQ(status["accounts"][0]["signed_in"], true);
  EXPECT_EQ(tulo({"login", "--account", "other"}).status, 1);
}

TEST_F(HostProcessTest, WithoutAHostTheCommandsSaySo) {
  const Ended ended = tulo({"status"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.errors, HasSubstr("no host answers at " + inContainer("fp.sock")));
}

TEST_F(HostProcessTest, WrongUsageIsNamed) {
  const std::vector<std::vector<std::string>> cases = {
      {"host"},
      {"host", "serve"},
      {"host", "serve", "--root", root_, "--fault", "fetsch=quota"},
      {"host", "serve", "--root", root_, "--delay", "fetch=soon"},
      {"host", "serve", "--root", root_, "--quota", "-1"},
      {"host", "serve", "--root", root_, "--quota", "many"},
      {"host", "serve", "--root", root_, "--account", "nameonly"},
      {"host", "lock", "a"},
  };
  for (const auto& arguments : cases) {
    const Ended ended = runTulo(arguments);
    EXPECT_EQ(ended.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(ended.output, "");
    EXPECT_NE(ended.errors, "");
  }
  const Ended twice =
      tulo({"serve", "--root", root_, "--account", "a=" + root_, "--account", "a=" + root_});
  EXPECT_EQ(twice.status, 1);
  EXPECT_THAT(twice.errors, HasSubstr("the account \"a\" is given twice"));
}

}  // namespace
}  // namespace tulo::test
