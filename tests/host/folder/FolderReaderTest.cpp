#include "host/folder/FolderReader.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include "host/base/HostError.h"
#include "tests/host/folder/FolderFixture.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

class FolderReaderTest : public FolderTest {
 protected:
  FolderReaderTest() {
    makeFolder("d");
    makeFile("d/b");
    makeFile("d/a");
    tree_.scanAll();
    ::getrlimit(RLIMIT_NOFILE, &limit_);
  }
  ~FolderReaderTest() override { ::setrlimit(RLIMIT_NOFILE, &limit_); }
  // No folder can be opened any more, or all can again.
  void takeDescriptors() {
    const rlimit none{3, limit_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
  }
  void giveDescriptors() { ::setrlimit(RLIMIT_NOFILE, &limit_); }

  rlimit limit_{};
  FolderReader reader_{folder_, places_, index_.nodes()};
};

TEST_F(FolderReaderTest, TellsAFolderBeforeItIsReadAndItsNamesInOrder) {
  std::string told;
  reader_.observe([&](const std::string& folder, int) { told = folder; });
  const auto opened = reader_.read(ulid("d"));
  ASSERT_TRUE(opened);
  EXPECT_EQ(told, ulid("d"));
  EXPECT_THAT(opened->names, ElementsAre("a", "b"));
  EXPECT_TRUE(reader_.entry(ulid("d"), *opened, "a").stat);
  EXPECT_FALSE(reader_.read("none"));
  EXPECT_FALSE(reader_.hasUnread());
}

TEST_F(FolderReaderTest, AnEntryMayBeThereOrNotAndSoMayItsFolder) {
  EXPECT_TRUE(reader_.entry(ulid("d"), "a").stat);
  const auto none = reader_.entry(ulid("d"), "none");
  EXPECT_TRUE(none.isRead && !none.stat);
  const auto nowhere = reader_.entry("none", "a");
  EXPECT_TRUE(nowhere.isRead && !nowhere.stat);
}

TEST_F(FolderReaderTest, OfAFolderThatCannotBeReadNothingIsSaid) {
  const Node node = *this->node("d/a");
  takeDescriptors();
  EXPECT_FALSE(reader_.read(node.parent));
  EXPECT_FALSE(reader_.entry(node.parent, "a").isRead);
  EXPECT_FALSE(reader_.isGone(node));
  giveDescriptors();
  EXPECT_TRUE(reader_.isUnread(node.parent));
  EXPECT_THAT(reader_.takeUnread(), ElementsAre(node.parent));
  EXPECT_FALSE(reader_.hasUnread());
}

TEST_F(FolderReaderTest, WithoutTheTopNothingGoesOn) {
  takeDescriptors();
  EXPECT_THROW(reader_.read(""), OperationError);
}

TEST_F(FolderReaderTest, WhatIsGoneIsSureToBe) {
  const Node node = *this->node("d/a");
  EXPECT_FALSE(reader_.isGone(node));
  fs::remove(inRoot("d/a"));
  EXPECT_TRUE(reader_.isGone(node));
}

}  // namespace
}  // namespace tulo::host
