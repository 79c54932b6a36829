#include "host/folder/Lookup.h"

#include "host/base/HostError.h"
#include "tests/host/folder/FolderFixture.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class LookupTest : public FolderTest {
 protected:
  LookupTest() {
    makeFolder("d");
    makeFile("d/a");
    tree_.scanAll();
  }
  std::string refusal(const std::string& path) {
    try {
      lookup_.requireAtDiskPath(path, root_);
      return "none";
    } catch (const OperationError& error) {
      return error.kind();
    }
  }

  Lookup lookup_{index_, places_, tree_};
};

TEST_F(LookupTest, ANodeIsLookedAtAfresh) {
  const std::string file = ulid("d/a");
  EXPECT_EQ(lookup_.require(file, false).fingerprint.size, 1);
  makeFile("d/a", "longer");
  EXPECT_EQ(lookup_.require(file, false).fingerprint.size, 6);
  fs::remove(inRoot("d/a"));
  EXPECT_FALSE(lookup_.find(file));
}

TEST_F(LookupTest, WhatIsOfTheOtherKindIsNotFound) {
  EXPECT_THROW(lookup_.require(ulid("d"), false), OperationError);
  EXPECT_THROW(lookup_.require(ulid("d/a"), true), OperationError);
  EXPECT_THROW(lookup_.require("none", true), OperationError);
}

TEST_F(LookupTest, AFolderIsFoundAlsoWhenItHasJustMoved) {
  const std::string folder = ulid("d");
  fs::rename(inRoot("d"), inRoot("e"));
  const Place place = lookup_.requirePlace(folder);
  EXPECT_EQ(place.ulid, folder);
  EXPECT_EQ(statDescriptor(place.folder.get()).inode, node("e")->fingerprint.inode);
  EXPECT_THROW(lookup_.requirePlace(ulid("e/a")), OperationError);
}

TEST_F(LookupTest, APathOnTheDiskLeadsToItsNode) {
  EXPECT_EQ(lookup_.requireAtDiskPath("/d//./a", root_).ulid, ulid("d/a"));
  makeFile("d/just made");
  const Node fresh = lookup_.requireAtDiskPath("d/just made", root_);
  EXPECT_EQ(fresh.ulid, ulid("d/just made"));
}

TEST_F(LookupTest, APathThatLeadsOutOrNowhereIsRefused) {
  fs::create_directory_symlink("/", inRoot("link"));
  EXPECT_EQ(refusal("../root/d"), "bad_request");
  EXPECT_EQ(refusal("d/../d"), "bad_request");
  EXPECT_EQ(refusal("link/etc"), "not_found");
  EXPECT_EQ(refusal("none"), "not_found");
  EXPECT_EQ(refusal(""), "not_found");
}

}  // namespace
}  // namespace tulo::host
