// `tulo demo` as a user runs it: the executable, a real host process, real files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/demo/RunningCommand.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

class DemoTest : public testing::Test {
 protected:
  RunningCommand start(std::vector<std::string> options) {
    std::vector<std::string> words{TULO_EXECUTABLE, "demo", "--files", "150"};
    words.insert(words.end(), options.begin(), options.end());
    return {words, {{"TMPDIR", directory_.path()}}};
  }

  // The number that follows "process" in the output: the host's.
  static pid_t hostIn(const std::string& output) {
    const std::size_t at = output.find("   process ");
    return at == std::string::npos ? -1 : std::stoi(output.substr(at + 11));
  }

  void expectNothingLeft(const std::string& output) {
    EXPECT_TRUE(std::filesystem::is_empty(directory_.path()));
    const pid_t host = hostIn(output);
    ASSERT_GT(host, 0) << output;
    EXPECT_EQ(kill(host, 0), -1) << "the host " << host << " still runs";
  }

  TemporaryDirectory directory_;
};

TEST_F(DemoTest, WalksTheAccountToItsEndAndLeavesNothing) {
  RunningCommand demo = start({});
  ASSERT_EQ(demo.finish(), 0) << demo.output();
  EXPECT_THAT(
      demo.output(),
      AllOf(ContainsRegex("report \\([0-9A-Z]{6}\\)\\.pdf +[0-9]+ B, marked"),
            ContainsRegex("notes \\([0-9A-Z]{6}\\) +10 B, marked"),
            ContainsRegex("Contract\\.txt +[0-9]+ B, locked"),
            HasSubstr("163 files and 84 folders, as on the disk"),
            HasSubstr("Videos/Holiday.mp4: 1 of 1 done"),
            HasSubstr("→ file Trip to the lake/Plan.md, 18 B"),
            HasSubstr("→ file Documents/Itinerary.md, 39 B; version 1 became 2"),
            HasSubstr("delete it → nothing at Documents/Itinerary.md"),
            ContainsRegex("Sunrise\\.png +png, [0-9]+ x [0-9]+ points"),
            ContainsRegex("invalid file name \\(NSCocoaErrorDomain 514\\)"),
            ContainsRegex("not authenticated \\(NSFileProviderErrorDomain -1000\\)"),
            ContainsRegex("a deletion +server unreachable \\(NSFileProviderErrorDomain -1004\\)"),
            HasSubstr("Every step did what it says.")));
  // Elsewhere the demo says that it cannot mount.
  if (access("/dev/fuse", R_OK | W_OK) == 0) {
    EXPECT_THAT(
        demo.output(),
        AllOf(ContainsRegex("is added to Documents/Budget.csv, and [0-9]+ ms later the host has"),
              ContainsRegex("renamed over Notes/Ideas.md, .* and [0-9]+ ms later the host has it"),
              ContainsRegex("the change waited, and [0-9]+ ms later the host has it"),
              HasSubstr("it is still the same item, in version 2 instead of 1")));
  }
  expectNothingLeft(demo.output());
}

TEST_F(DemoTest, IsPlainWhereItsOutputIsNoTerminal) {
  RunningCommand demo = start({});
  ASSERT_EQ(demo.finish(), 0) << demo.output();
  EXPECT_THAT(demo.output(), AllOf(Not(HasSubstr("\033")), Not(HasSubstr("\r"))));
}

TEST_F(DemoTest, KeepsServingUntilItIsInterrupted) {
  RunningCommand demo = start({"--keep"});
  ASSERT_TRUE(demo.readUntil("tulo provider --help")) << demo.output();
  // Beside the account lies the folder of its mount.
  std::filesystem::directory_entry entry;
  for (const auto& each : std::filesystem::directory_iterator(directory_.path())) {
    if (std::filesystem::exists(each.path() / "container")) entry = each;
  }
  RunningCommand provider({TULO_EXECUTABLE, "provider", "--container", entry.path() / "container",
                           "create", "--name", "Tried", "--folder"},
                          {});
  EXPECT_EQ(provider.finish(), 0) << provider.output();
  EXPECT_TRUE(std::filesystem::is_directory(entry.path() / "account/Tried"));
  demo.signal(SIGINT);
  EXPECT_EQ(demo.finish(), 0) << demo.output();
  expectNothingLeft(demo.output());
}

TEST_F(DemoTest, AnInterruptionInTheMiddleCleansUp) {
  RunningCommand demo = start({});
  // More than its pipe holds is still to come.
  ASSERT_TRUE(demo.readUntil("   socket ")) << demo.output();
  demo.signal(SIGTERM);
  EXPECT_EQ(demo.finish(), 128 + SIGTERM) << demo.output();
  EXPECT_THAT(demo.output(), Not(HasSubstr("Every step did")));
  expectNothingLeft(demo.output());
}

TEST_F(DemoTest, AReaderThatGoesAwayEndsIt) {
  RunningCommand demo(
      {"sh", "-c",
       std::string("\"") + TULO_EXECUTABLE + "\" demo --files 150 | head -n 3; echo end"},
      {{"TMPDIR", directory_.path()}});
  EXPECT_EQ(demo.finish(), 0);
  EXPECT_THAT(demo.output(), HasSubstr("standard output could not be written"));
  EXPECT_TRUE(std::filesystem::is_empty(directory_.path()));
}

TEST_F(DemoTest, AFolderThatCannotBeMadeIsNamed) {
  RunningCommand demo({TULO_EXECUTABLE, "demo"}, {{"TMPDIR", directory_.path() + "/absent"}});
  EXPECT_EQ(demo.finish(), 1);
  EXPECT_THAT(demo.output(), HasSubstr(directory_.path() + "/absent/tulo-demo-"));
}

TEST_F(DemoTest, APathTooLongForASocketIsAnError) {
  const std::string deep = directory_.path() + "/" + std::string(90, 'd');
  std::filesystem::create_directory(deep);
  RunningCommand demo({TULO_EXECUTABLE, "demo", "--files", "0"}, {{"TMPDIR", deep}});
  EXPECT_EQ(demo.finish(), 1);
  EXPECT_THAT(demo.output(), HasSubstr("too long"));
  EXPECT_TRUE(std::filesystem::is_empty(deep));
}

TEST_F(DemoTest, ANumberOfFilesThatIsNoneIsWrongUsage) {
  RunningCommand demo({TULO_EXECUTABLE, "demo", "--files", "many"}, {});
  EXPECT_EQ(demo.finish(), 2);
  EXPECT_THAT(demo.output(), HasSubstr("many"));
}

}  // namespace
}  // namespace tulo::test
