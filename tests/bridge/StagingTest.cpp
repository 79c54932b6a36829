#include <gmock/gmock.h>

#include <filesystem>
#include <thread>

#include "tests/bridge/BridgeFixture.h"
#include "tests/support/Descriptors.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using platform::URL;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

const std::optional<std::string> none;

class StagingTest : public BridgeFixture {
 protected:
  StagingTest() { writeFile(source_, "the contents"); }

  std::vector<std::string> staged() const {
    std::vector<std::string> names;
    if (fs::is_directory(container_.file("fp-upload")))
      for (const auto& entry : fs::directory_iterator(container_.file("fp-upload")))
        names.push_back(entry.path().string());
    return names;
  }

  std::string pathIn(const std::string& request) const {
    const auto object = decoded(request);
    const auto found = object.find("path");
    EXPECT_NE(found, object.end()) << request;
    return found == object.end() ? "" : std::get<std::string>(found->second);
  }

  std::string create() const {
    return thrownBy([&] { HostBridge::create("a", none, "name", URL(source_)); });
  }

  TemporaryDirectory elsewhere_;
  const std::string source_ = elsewhere_.file("source.txt");
};

TEST_F(StagingTest, CopiesIntoTheStagingDirectoryUnderAUuid) {
  const URL copy = HostBridge::stage(URL(source_));
  EXPECT_THAT(copy.path(), StartsWith(container_.path() + "/fp-upload/"));
  constexpr const char* hexadecimal = "[0-9A-F]";
  std::string pattern;
  for (const int count : {8, 4, 4, 4, 12}) {
    for (int i = 0; i < count; ++i)
      pattern += hexadecimal;
    pattern += "-";
  }
  pattern.pop_back();
  EXPECT_THAT(fs::path(copy.path()).filename().string(), MatchesRegex(pattern));
  EXPECT_EQ(readFile(copy.path()), "the contents");
}

TEST_F(StagingTest, LeavesTheSourceAlone) {
  HostBridge::stage(URL(source_));
  EXPECT_EQ(readFile(source_), "the contents");
}

TEST_F(StagingTest, GivesEachCopyItsOwnName) {
  const URL one = HostBridge::stage(URL(source_));
  const URL other = HostBridge::stage(URL(source_));
  EXPECT_NE(one, other);
  EXPECT_THAT(staged(), SizeIs(2));
  writeFile(one.path(), "changed");
  EXPECT_EQ(readFile(other.path()), "the contents");
  EXPECT_EQ(readFile(source_), "the contents");
}

TEST_F(StagingTest, CopiesAnEmptyFile) {
  writeFile(source_, "");
  EXPECT_EQ(readFile(HostBridge::stage(URL(source_)).path()), "");
}

TEST_F(StagingTest, CopiesATreeWholeWithItsLinks) {
  const std::string package = elsewhere_.file("Package.bundle");
  fs::create_directories(package + "/inner/empty");
  writeFile(package + "/inner/file", "deep");
  fs::create_symlink("inner/file", package + "/link");
  fs::create_symlink("nowhere", package + "/dangling");
  const std::string copy = HostBridge::stage(URL(package)).path();
  EXPECT_TRUE(fs::is_directory(copy));
  EXPECT_TRUE(fs::is_directory(copy + "/inner/empty"));
  EXPECT_EQ(readFile(copy + "/inner/file"), "deep");
  EXPECT_EQ(fs::read_symlink(copy + "/link"), "inner/file");
  EXPECT_EQ(fs::read_symlink(copy + "/dangling"), "nowhere");
}

TEST_F(StagingTest, UsesAStagingDirectoryThatIsThereAlready) {
  fs::create_directory(container_.file("fp-upload"));
  writeFile(container_.file("fp-upload/other"), "stays");
  HostBridge::stage(URL(source_));
  EXPECT_THAT(staged(), SizeIs(2));
  EXPECT_EQ(readFile(container_.file("fp-upload/other")), "stays");
}

TEST_F(StagingTest, NoContainerIsUnreachable) {
  container_.vanish();
  EXPECT_EQ(thrownBy([&] { HostBridge::stage(URL(source_)); }), "unreachable");
}

TEST_F(StagingTest, AMissingSourceIsTheFileManagersError) {
  const std::string thrown = thrownBy([&] { HostBridge::stage(URL(elsewhere_.file("missing"))); });
  EXPECT_THAT(thrown, StartsWith("file manager: "));
  EXPECT_THAT(thrown, testing::HasSubstr("missing"));
  EXPECT_THAT(staged(), IsEmpty());
}

TEST_F(StagingTest, AFileInPlaceOfTheStagingDirectoryIsTheFileManagersError) {
  writeFile(container_.file("fp-upload"), "in the way");
  EXPECT_THAT(thrownBy([&] { HostBridge::stage(URL(source_)); }), StartsWith("file manager: "));
  EXPECT_EQ(readFile(container_.file("fp-upload")), "in the way");
}

TEST_F(StagingTest, CreateSendsThePathOfItsCopy) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":true,"ulid":"N"})"));
  EXPECT_EQ(create(), "nothing");
  const std::string path = pathIn(host.requests().at(0));
  EXPECT_THAT(staged(), testing::ElementsAre(path));
  EXPECT_EQ(readFile(path), "the contents");
}

TEST_F(StagingTest, ModifySendsThePathOfItsCopy) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":true})"));
  HostBridge::modify("a", "U", false, URL(source_), none, std::nullopt);
  EXPECT_THAT(staged(), testing::ElementsAre(pathIn(host.requests().at(0))));
}

TEST_F(StagingTest, ModifyOfAFolderSendsWhatItIsGiven) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":true})"));
  HostBridge::modify("a", "U", true, URL(source_), none, std::nullopt);
  EXPECT_THAT(staged(), testing::ElementsAre(pathIn(host.requests().at(0))));
}

TEST_F(StagingTest, WithoutContentsNothingIsStaged) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":true,"ulid":"N"})"));
  HostBridge::create("a", none, "name", std::nullopt);
  HostBridge::modify("a", "U", false, std::nullopt, "name", std::nullopt);
  EXPECT_FALSE(fs::exists(container_.file("fp-upload")));
}

TEST_F(StagingTest, AStagedCopyStaysAfterEveryOutcome) {
  {
    FakeHost host(container_.socketPath());
    host.then(replies(R"({"ok":true,"ulid":"N"})"))
        .then(replies(R"({"ok":false,"kind":"quota"})"))
        .then(hangsUp());
    EXPECT_EQ(create(), "nothing");
    EXPECT_EQ(create(), "remote(kind: \"quota\", message: \"unknown error\")");
    EXPECT_EQ(create(), noReply);
  }
  EXPECT_EQ(create(), "unreachable");
  EXPECT_THAT(staged(), SizeIs(4));
}

TEST_F(StagingTest, AFailureOfStagingSendsNothing) {
  fs::remove(source_);
  FakeHost host(container_.socketPath());
  EXPECT_THAT(create(), StartsWith("file manager: "));
  EXPECT_EQ(host.connections(), 0U);
}

TEST_F(StagingTest, ContentsAreStagedBeforeTheHostIsLookedFor) {
  fs::remove(source_);
  EXPECT_THAT(create(), StartsWith("file manager: "));
}

TEST_F(StagingTest, ClosesWhatItOpened) {
  const auto before = openDescriptors();
  HostBridge::stage(URL(source_));
  thrownBy([&] { HostBridge::stage(URL(elsewhere_.file("missing"))); });
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(StagingTest, ManyCopiesAtOnceNeverCollide) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([this] {
      for (int round = 0; round < 10; ++round)
        HostBridge::stage(URL(source_));
    });
  for (std::thread& thread : threads)
    thread.join();
  const auto copies = staged();
  EXPECT_THAT(copies, SizeIs(80));
  for (const std::string& copy : copies)
    EXPECT_EQ(readFile(copy), "the contents");
}

}  // namespace
}  // namespace tulo::test
