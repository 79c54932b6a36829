#include "host/folder/Placement.h"

#include <sys/stat.h>

#include "host/base/HostError.h"
#include "host/folder/WorkFolder.h"
#include "tests/host/folder/FolderFixture.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class PlacementTest : public FolderTest {
 protected:
  // Something in the working folder that is to get a name.
  Node made(const std::string& bytes) {
    const FileDescriptor work = work_.open();
    test::writeFile(inRoot(".tulo-host/item"), bytes);
    return {"u", "", {}, false, Fingerprint::of(*statEntry(work.get(), "item"))};
  }
  void move(Node& node, const std::string& shownName, Placement::Announcement announcement) {
    const FileDescriptor work = work_.open();
    placement_.moveToFreeName(work.get(), "item", place(""), node, shownName, announcement);
  }

  const WorkFolder work_{folder_.descriptor()};
  Placement placement_{index_, places_};
};

TEST_F(PlacementTest, ATakenNameGetsANumber) {
  makeFile("a.txt", "first");
  fs::create_symlink("nowhere", inRoot("a~2.txt"));
  Node node = made("new");
  move(node, "a.txt", Placement::Announcement::needless);
  EXPECT_EQ(node.diskName, "a~3.txt");
  EXPECT_EQ(test::readFile(inRoot("a~3.txt")), "new");
  EXPECT_EQ(test::readFile(inRoot("a.txt")), "first");
}

TEST_F(PlacementTest, NewContentsAreAnnouncedDurablyBeforeTheyShow) {
  Node node = made("new");
  move(node, "a", Placement::Announcement::needed);
  index_.database().rollback();
  const auto intent = index_.intents().find(node.fingerprint);
  ASSERT_TRUE(intent);
  EXPECT_EQ(intent->diskName, "a");
}

TEST_F(PlacementTest, AMoveOfWhatIsKnownIsNot) {
  Node node = made("new");
  move(node, "a", Placement::Announcement::needless);
  EXPECT_FALSE(index_.intents().find(node.fingerprint));
}

TEST_F(PlacementTest, ReplacedContentsKeepTheirPermissions) {
  makeFile("run", "old");
  ASSERT_EQ(::chmod(inRoot("run").c_str(), 0750), 0);
  const WorkItem item(work_.open(), "item", log_);
  made("new");
  replaceContents(item, place(""), "run");
  EXPECT_EQ(test::readFile(inRoot("run")), "new");
  EXPECT_EQ(statEntry(folder_.descriptor(), "run")->mode, 0750U);
}

TEST_F(PlacementTest, WhatIsNotThereCannotBeReplaced) {
  const WorkItem item(work_.open(), "item", log_);
  made("new");
  EXPECT_THROW(replaceContents(item, place(""), "none"), OperationError);
  EXPECT_FALSE(fs::exists(inRoot("none")));
}

}  // namespace
}  // namespace tulo::host
