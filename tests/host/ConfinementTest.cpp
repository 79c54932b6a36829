// Whatever a request says, the host stays inside its root and its staging folder, and it removes
// only what is its own.

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/host/HostFixture.h"
#include "tests/support/CaseName.h"
#include "tests/support/Eventually.h"
#include "tests/support/LogRecorder.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

struct PathCase {
  std::string title;
  // "@" stands for the container.
  std::string path;
};

class HostStagedPathTest : public HostTest, public testing::WithParamInterface<PathCase> {
 protected:
  std::string path() const {
    std::string text = GetParam().path;
    if (const auto at = text.find('@'); at != std::string::npos) text.replace(at, 1, container_);
    return text;
  }
};

TEST_P(HostStagedPathTest, OutsideTheStagingFolderIsRefusedAndLeftAlone) {
  startHost();
  writeFile(directory_.file("precious"), "precious");
  fs::create_symlink(directory_.file("precious"), inContainer("fp-upload/link"));
  fs::create_directory(inContainer("fp-upload/tree"));
  writeFile(inContainer("fp-upload/tree/inner"), "inner");
  const json reply = ask({{"op", "create"}, {"name", "stolen"}, {"path", path()}});
  EXPECT_EQ(kindOf(reply), "bad_request") << reply;
  EXPECT_THAT(paths(), IsEmpty());
  EXPECT_EQ(readFile(directory_.file("precious")), "precious");
  EXPECT_EQ(readFile(inContainer("fp-upload/tree/inner")), "inner");
  EXPECT_TRUE(fs::exists(inContainer("state.db")));
}

INSTANTIATE_TEST_SUITE_P(
    Paths, HostStagedPathTest,
    testing::Values(
        PathCase{"Elsewhere", "@/../precious"}, PathCase{"TheIndex", "@/state.db"},
        PathCase{"WayUp", "@/fp-upload/../state.db"}, PathCase{"TheFolderItself", "@/fp-upload"},
        PathCase{"TheFolderWithSlash", "@/fp-upload/"}, PathCase{"Dot", "@/fp-upload/."},
        PathCase{"DotDot", "@/fp-upload/.."}, PathCase{"InsideACopy", "@/fp-upload/tree/inner"},
        PathCase{"ALink", "@/fp-upload/link"}, PathCase{"Relative", "precious"},
        PathCase{"Empty", ""}, PathCase{"Root", "/"}, PathCase{"SystemFile", "/etc/hostname"}),
    CaseName());

class HostConfinementTest : public HostTest {};

TEST_F(HostConfinementTest, AStagedCopyThatIsNotThereIsNotFound) {
  startHost();
  const std::string path = inContainer("fp-upload/none");
  EXPECT_EQ(kindOf(ask({{"op", "create"}, {"name", "a"}, {"path", path}})), "not_found");
}

TEST_F(HostConfinementTest, AnotherSpellingOfTheContainerLeadsToTheSameCopy) {
  startHost();
  fs::create_symlink(container_, directory_.file("alias"));
  stage("hello");
  const std::string path = directory_.file("alias") + "//fp-upload/../fp-upload/STAGED-1";
  EXPECT_EQ(ask({{"op", "create"}, {"name", "a"}, {"path", path}})["ok"], true);
  EXPECT_EQ(readFile(inRoot("a")), "hello");
}

TEST_F(HostConfinementTest, AFolderThatBecomesALinkIsNotFollowed) {
  makeFolder("d");
  makeFile("d/a", "x");
  const std::string outside = directory_.file("outside");
  fs::create_directory(outside);
  writeFile(outside + "/a", "precious");
  startHost();
  const IndexRow folder = row("d");
  const IndexRow file = row("d/a");
  fs::rename(inRoot("d"), directory_.file("aside"));
  fs::create_symlink(outside, inRoot("d"));
  EXPECT_EQ(kindOf(create("new", "x", folder.ulid)), "not_found");
  EXPECT_EQ(kindOf(ask({{"op", "fetch"}, {"ulid", file.ulid}})), "not_found");
  EXPECT_EQ(kindOf(ask({{"op", "delete"}, {"ulid", file.ulid}, {"is_folder", false}})),
            "not_found");
  EXPECT_THAT(entriesOf(outside), ElementsAre("a"));
  EXPECT_EQ(readFile(outside + "/a"), "precious");
}

TEST_F(HostConfinementTest, AFileThatBecomesALinkIsNotFollowed) {
  makeFile("a", "x");
  writeFile(directory_.file("outside"), "precious");
  startHost();
  const std::string ulid = row("a").ulid;
  fs::remove(inRoot("a"));
  fs::create_symlink(directory_.file("outside"), inRoot("a"));
  EXPECT_EQ(kindOf(ask({{"op", "fetch"}, {"ulid", ulid}})), "not_found");
  EXPECT_EQ(readFile(directory_.file("outside")), "precious");
}

TEST_F(HostConfinementTest, AStagingFolderThatIsALinkIsNotFollowed) {
  startHost();
  const std::string outside = directory_.file("outside");
  fs::create_directory(outside);
  writeFile(outside + "/precious", "precious");
  // The first look for what is old may just be making the folder again.
  ASSERT_TRUE(eventually([&] {
    std::error_code error;
    fs::remove(inContainer("fp-upload"), error);
    fs::create_symlink(outside, inContainer("fp-upload"), error);
    return !error;
  }));
  const std::string path = inContainer("fp-upload/precious");
  EXPECT_EQ(ask({{"op", "create"}, {"name", "a"}, {"path", path}})["ok"], false);
  EXPECT_EQ(readFile(outside + "/precious"), "precious");
}

TEST_F(HostConfinementTest, UlidsAreTextAndNothingElse) {
  makeFile("a", "x");
  startHost();
  for (const std::string ulid : {"", "!", "../a", "' OR 1=1 --", "%", "a"}) {
    EXPECT_EQ(kindOf(ask({{"op", "fetch"}, {"ulid", ulid}})), "not_found") << ulid;
    EXPECT_EQ(kindOf(ask({{"op", "delete"}, {"ulid", ulid}, {"is_folder", true}})), "not_found")
        << ulid;
  }
  EXPECT_THAT(paths(), ElementsAre("a"));
}

class HostUncollectedTest : public HostTest {
 protected:
  // Takes everything for old that is there already, and looks often.
  host::HostOptions eager() const {
    auto changed = options();
    changed.uncollectedAge = std::chrono::seconds(0);
    changed.collectionInterval = std::chrono::milliseconds(5);
    return changed;
  }
};

TEST_F(HostUncollectedTest, OldStagedCopiesGoAndTheLogSaysSo) {
  startHost();
  stopHost();
  const LogRecorder log;
  writeFile(inContainer("fp-upload/forgotten"), "x");
  fs::create_directory(inContainer("fp-upload/tree"));
  writeFile(inContainer("fp-upload/tree/a"), "x");
  writeFile(inContainer("fp-download/never-fetched"), "x");
  startHost(eager());
  EXPECT_TRUE(eventually(
      [&] { return stagedCopies().empty() && entriesOf(inContainer("fp-download")).empty(); }));
  stopHost();
  std::vector<std::string> messages;
  for (const LogLine& line : log.lines())
    messages.push_back(line.message);
  EXPECT_THAT(messages, testing::UnorderedElementsAre(
                            "swept the staged copy \"forgotten\", which no request has named",
                            "swept the staged copy \"tree\", which no request has named",
                            "swept the copy \"never-fetched\", which nobody has fetched"));
}

TEST_F(HostUncollectedTest, YoungCopiesStayWhateverTheirModificationTime) {
  startHost();
  stopHost();
  const std::string path = stage("x");
  // Staging keeps the time of the source, which may be years ago.
  fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(24 * 365));
  startHost();
  createFolder("d");
  stopHost();
  EXPECT_EQ(stagedCopies().size(), 1U);
}

TEST_F(HostUncollectedTest, ACopyThatARequestHoldsStays) {
  startHost(eager());
  runningHost().faults().add(host::Delay{"create", std::chrono::milliseconds(0)});
  for (int i = 0; i < 20; ++i) {
    // Either that look was first, and there is nothing to take, or the copy arrives whole.
    const json reply = create("a" + std::to_string(i), "x");
    if (reply["ok"] != true) {
      EXPECT_EQ(kindOf(reply), "not_found");
    }
  }
  for (const auto& [path, item] : rows())
    EXPECT_EQ(item.size, 1) << path;
}

}  // namespace
}  // namespace tulo::test
