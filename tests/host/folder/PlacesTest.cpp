#include "host/folder/Places.h"

#include "tests/host/folder/FolderFixture.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class PlacesTest : public FolderTest {
 protected:
  PlacesTest() {
    makeFolder("a/b");
    makeFile("a/b/file");
    tree_.scanAll();
  }
};

TEST_F(PlacesTest, AFolderIsOpenedByItsIdentifier) {
  EXPECT_EQ(statDescriptor(places_.open(ulid("a/b")).get()).inode, node("a/b")->fingerprint.inode);
  EXPECT_TRUE(places_.open(rootUlid));
  EXPECT_FALSE(places_.open(ulid("a/b/file")));
  EXPECT_FALSE(places_.open("none"));
}

TEST_F(PlacesTest, ALinkOnTheWayIsNotFollowed) {
  const std::string below = ulid("a/b");
  fs::rename(inRoot("a"), directory_.file("outside"));
  fs::create_directory_symlink(directory_.file("outside"), inRoot("a"));
  EXPECT_FALSE(places_.open(below));
}

TEST_F(PlacesTest, SomethingOfItsKindHoldsANodesPlace) {
  const Node file = *node("a/b/file");
  EXPECT_TRUE(places_.hasEntryOf(file));
  fs::remove(inRoot("a/b/file"));
  EXPECT_FALSE(places_.hasEntryOf(file));
  makeFolder("a/b/file");
  EXPECT_FALSE(places_.hasEntryOf(file));
}

TEST_F(PlacesTest, ANameIsFreeOnTheDiskAndInTheIndex) {
  EXPECT_TRUE(places_.isFree(place(""), "new"));
  EXPECT_FALSE(places_.isFree(place(""), "a"));
  fs::create_symlink("nowhere", inRoot("link"));
  EXPECT_FALSE(places_.isFree(place(""), "link")) << "not served, and in the way";
  fs::remove(inRoot("a/b/file"));
  EXPECT_FALSE(places_.isFree(place("a/b"), "file")) << "not yet noticed";
  EXPECT_FALSE(places_.isFree(place(""), ".tulo-host"));
  EXPECT_TRUE(places_.isFree(place("a"), ".tulo-host"));
}

}  // namespace
}  // namespace tulo::host
