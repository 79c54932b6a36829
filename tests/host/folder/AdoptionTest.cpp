#include "host/folder/Adoption.h"

#include "host/base/Files.h"
#include "tests/host/folder/FolderFixture.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class AdoptionTest : public FolderTest {
 protected:
  EntryStat stat(const std::string& name) const { return *statEntry(folder_.descriptor(), name); }
  Adoption::Adopted adopt(const std::string& name) { return adoption_.adopt("", name, stat(name)); }

  Adoption adoption_{index_, places_, ulids_};
};

TEST_F(AdoptionTest, WhatNobodyKnowsIsNew) {
  makeFile("a");
  const auto adopted = adopt("a");
  EXPECT_FALSE(adopted.displaced);
  EXPECT_EQ(ulid("a"), adopted.ulid);
  EXPECT_EQ(index_.rows().nameOf(adopted.ulid), "a");
}

TEST_F(AdoptionTest, WhatIsGoneFromItsOldPlaceHasMoved) {
  makeFile("a");
  const std::string before = adopt("a").ulid;
  fs::rename(inRoot("a"), inRoot("b"));
  EXPECT_EQ(adopt("b").ulid, before);
  EXPECT_EQ(index_.rows().nameOf(before), "b");
  EXPECT_EQ(index_.rows().file(before)->version, 1);
}

TEST_F(AdoptionTest, ASecondNameOfTheSameFileIsAnItemOfItsOwn) {
  makeFile("a");
  const std::string first = adopt("a").ulid;
  fs::create_hard_link(inRoot("a"), inRoot("b"));
  EXPECT_NE(adopt("b").ulid, first);
}

TEST_F(AdoptionTest, AClashingNameIsKeptOnTheWayToAnotherFolder) {
  makeFile("a~2");
  const std::string file = adopt("a~2").ulid;
  index_.place(file, "", "a~2", "a");
  makeFolder("d");
  const std::string folder = adopt("d").ulid;
  fs::rename(inRoot("a~2"), inRoot("d/a~2"));
  const FileDescriptor opened = openFolder(folder_.descriptor(), "d");
  EXPECT_EQ(adoption_.adopt(folder, "a~2", *statEntry(opened.get(), "a~2")).ulid, file);
  EXPECT_EQ(index_.rows().nameOf(file), "a");
}

TEST_F(AdoptionTest, AFolderThatWasAboveItsNewPlaceDisplacesTheOneBetween) {
  makeFolder("a/b");
  tree_.scanAll();
  const std::string a = ulid("a");
  const std::string b = ulid("a/b");
  fs::rename(inRoot("a/b"), inRoot("b"));
  fs::rename(inRoot("a"), inRoot("b/a"));
  // Seen first in its new place, while the other one's is still to be seen.
  const FileDescriptor opened = openFolder(folder_.descriptor(), "b");
  const auto adopted = adoption_.adopt(b, "a", *statEntry(opened.get(), "a"));
  EXPECT_EQ(adopted.ulid, a);
  EXPECT_EQ(adopted.displaced, b);
  EXPECT_FALSE(index_.nodes().isWithin(b, a));
}

TEST_F(AdoptionTest, WhatAWriteHasAnnouncedIsThatWhileAnEarlierRunIsLookedAt) {
  makeFile("a~2");
  index_.intents().announce({"announced", "", "a~2", false, Fingerprint::of(stat("a~2"))}, "a");
  adoption_.expectIntents(true);
  EXPECT_EQ(adopt("a~2").ulid, "announced");
  EXPECT_EQ(index_.rows().nameOf("announced"), "a");
}

TEST_F(AdoptionTest, LaterOnAnIntentSaysNothing) {
  makeFile("a");
  index_.intents().announce({"announced", "", "a", false, Fingerprint::of(stat("a"))}, "x");
  EXPECT_NE(adopt("a").ulid, "announced");
}

TEST_F(AdoptionTest, AnIntentForAnotherPlaceSaysNothing) {
  makeFile("a");
  index_.intents().announce({"announced", "", "b", false, Fingerprint::of(stat("a"))}, "x");
  adoption_.expectIntents(true);
  EXPECT_NE(adopt("a").ulid, "announced");
}

}  // namespace
}  // namespace tulo::host
