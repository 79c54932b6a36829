// Contents on their way out of the host.

#include <gmock/gmock.h>

#include <filesystem>

#include "tests/host/HostFixture.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;

class HostFetchTest : public HostTest {
 protected:
  json fetch(const std::string& ulid) { return ask({{"op", "fetch"}, {"ulid", ulid}}); }
};

TEST_F(HostFetchTest, HandsOverACopyThatIsTheReceivers) {
  makeFile("a.txt", "hello");
  startHost();
  const json reply = fetch(row("a.txt").ulid);
  ASSERT_EQ(reply["ok"], true);
  const std::string path = reply["path"];
  EXPECT_THAT(path, testing::StartsWith(inContainer("fp-download/")));
  EXPECT_EQ(readFile(path), "hello");
  writeFile(path, "changed by the receiver");
  fs::remove(path);
  EXPECT_EQ(readFile(inRoot("a.txt")), "hello");
}

TEST_F(HostFetchTest, TwoCopiesHaveTwoPaths) {
  makeFile("a.txt", "hello");
  startHost();
  const std::string ulid = row("a.txt").ulid;
  EXPECT_NE(fetch(ulid)["path"], fetch(ulid)["path"]);
}

TEST_F(HostFetchTest, LargeAndEmptyFilesArriveWhole) {
  std::string large;
  while (large.size() < 5'000'000)
    large += std::to_string(large.size()) + " ";
  makeFile("large", large);
  makeFile("empty", "");
  startHost();
  EXPECT_TRUE(readFile(fetch(row("large").ulid)["path"]) == large);
  EXPECT_EQ(readFile(fetch(row("empty").ulid)["path"]), "");
}

TEST_F(HostFetchTest, AFileThatHasJustChangedComesWithItsNewRow) {
  makeFile("a", "old");
  startHost();
  const std::string ulid = row("a").ulid;
  makeFile("a", "newer");
  EXPECT_EQ(readFile(fetch(ulid)["path"]), "newer");
  EXPECT_EQ(row("a").size, 5);
  EXPECT_GE(row("a").version, 2);
}

TEST_F(HostFetchTest, AFileThatHasJustBeenMovedIsStillFound) {
  makeFolder("here");
  makeFolder("there");
  makeFile("here/a", "x");
  startHost();
  const std::string ulid = row("here/a").ulid;
  fs::rename(inRoot("here"), inRoot("there/here"));
  EXPECT_EQ(readFile(fetch(ulid)["path"]), "x");
  EXPECT_EQ(row("there/here/a").ulid, ulid);
}

TEST_F(HostFetchTest, UnknownItemsAndFoldersAreNotFound) {
  makeFolder("d");
  makeFile("a", "x");
  startHost();
  const std::string gone = row("a").ulid;
  fs::remove(inRoot("a"));
  EXPECT_EQ(kindOf(fetch("01ARYZ6S410000000000000000")), "not_found");
  EXPECT_EQ(kindOf(fetch("")), "not_found");
  EXPECT_EQ(kindOf(fetch(row("d").ulid)), "not_found");
  EXPECT_EQ(kindOf(fetch(gone)), "not_found");
  EXPECT_FALSE(hasRow("a"));
}

TEST_F(HostFetchTest, AnAccountThatNobodyHasIsUnauthorized) {
  startHost();
  EXPECT_EQ(kindOf(ask({{"op", "fetch"}, {"account", "other"}, {"ulid", "x"}})), "unauthorized");
}

}  // namespace
}  // namespace tulo::test
