#include "host/folder/Follower.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include "tests/host/folder/FolderFixture.h"
#include "tests/support/LogRecorder.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class FollowerTest : public FolderTest {
 protected:
  FollowerTest() { tree_.scanAll(); }

  // As on a full disk.
  void fillIndex() { limitIndex(1); }
  void emptyIndex() { limitIndex(1'000'000); }

  const test::LogRecorder logged_;
  Mutex mutex_;
  Follower follower_{{mutex_, folder_, index_, tree_, log_}};

 private:
  void limitIndex(int pages) {
    sqlite::Statement& limit =
        index_.database().reading("PRAGMA max_page_count = " + std::to_string(pages));
    const sqlite::StatementUse use(limit);
    limit.step();
  }
};

TEST_F(FollowerTest, ChangesAreTakenIn) {
  makeFile("a");
  EXPECT_EQ(follower_.changes({{"", "a"}}), Followed::all);
  EXPECT_TRUE(node("a"));
}

TEST_F(FollowerTest, WhereTheRootIsAwayNothingIsBelieved) {
  makeFile("a");
  ASSERT_EQ(follower_.changes({{"", "a"}}), Followed::all);
  fs::rename(root_, directory_.file("aside"));
  EXPECT_EQ(follower_.changes({{"", "a"}}), Followed::failed);
  EXPECT_EQ(follower_.everything(), Followed::failed);
  EXPECT_TRUE(node("a"));
  fs::rename(directory_.file("aside"), root_);
  EXPECT_EQ(follower_.everything(), Followed::all);
}

TEST_F(FollowerTest, AFullIndexFailsAndIsCompleteAfterTheNextLookAtEverything) {
  fillIndex();
  std::set<Watcher::Change> changes;
  for (int i = 0; i < 500; ++i) {
    makeFile("f" + std::to_string(i));
    changes.insert({"", "f" + std::to_string(i)});
  }
  EXPECT_EQ(follower_.changes(changes), Followed::failed);
  EXPECT_EQ(index_.database().pending(), 0U);
  EXPECT_EQ(follower_.everything(), Followed::failed);
  emptyIndex();
  EXPECT_EQ(follower_.everything(), Followed::all);
  EXPECT_EQ(index_.rows().counts().items, 500);
}

TEST_F(FollowerTest, AFailureIsToldOnceAndSoIsItsEnd) {
  fs::rename(root_, directory_.file("aside"));
  follower_.everything();
  const auto told = logged_.lines().size();
  follower_.everything();
  EXPECT_EQ(logged_.lines().size(), told);
  fs::rename(directory_.file("aside"), root_);
  follower_.everything();
  EXPECT_EQ(logged_.lines().size(), told + 1);
}

TEST_F(FollowerTest, WhatCannotBeReadStaysAndIsReadLater) {
  makeFolder("d");
  makeFile("d/a");
  ASSERT_EQ(follower_.changes({{"", "d"}}), Followed::all);
  const std::string d = ulid("d");
  ASSERT_EQ(::rename(inRoot("d/a").c_str(), inRoot("d/b").c_str()), 0);
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const rlimit none{3, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
  const Followed shortage = follower_.changes({{d, "a"}, {d, "b"}});
  const Followed again = follower_.unread();
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(shortage, Followed::partly);
  EXPECT_EQ(again, Followed::partly);
  EXPECT_TRUE(node("d/a")) << "nothing is known of what has become of it";
  EXPECT_EQ(follower_.unread(), Followed::all);
  EXPECT_FALSE(node("d/a"));
  EXPECT_TRUE(node("d/b"));
}

}  // namespace
}  // namespace tulo::host
