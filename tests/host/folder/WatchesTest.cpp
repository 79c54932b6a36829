#include "host/folder/Watches.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "host/base/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class WatchesTest : public testing::Test {
 protected:
  // The watch of the next event; -1 where there is none.
  int nextWatch() {
    alignas(inotify_event) std::array<char, 4096> buffer;
    const ssize_t size = ::read(watches_.descriptor(), buffer.data(), buffer.size());
    return size <= 0 ? -1 : reinterpret_cast<const inotify_event*>(buffer.data())->wd;
  }
  FileDescriptor folder(const std::string& name) {
    fs::create_directories(directory_.file(name));
    return openFolderPath(directory_.file(name));
  }

  const test::TemporaryDirectory directory_;
  Watches watches_;
};

TEST_F(WatchesTest, AnEventLeadsToItsFolder) {
  ASSERT_EQ(watches_.add("A", folder("a").get()), 0);
  ASSERT_EQ(watches_.add("B", folder("b").get()), 0);
  test::writeFile(directory_.file("b/file"), "x");
  EXPECT_EQ(watches_.ulidOf(nextWatch()), "B");
  EXPECT_EQ(nextWatch(), -1);
}

TEST_F(WatchesTest, ARemovedWatchLeadsNowhere) {
  ASSERT_EQ(watches_.add("A", folder("a").get()), 0);
  test::writeFile(directory_.file("a/file"), "x");
  watches_.remove("A");
  watches_.remove("never watched");
  EXPECT_FALSE(watches_.ulidOf(nextWatch()));
}

TEST_F(WatchesTest, AFolderThatGetsANewIdentifierIsKnownByThat) {
  const FileDescriptor opened = folder("a");
  ASSERT_EQ(watches_.add("A", opened.get()), 0);
  ASSERT_EQ(watches_.add("B", opened.get()), 0);
  test::writeFile(directory_.file("a/file"), "x");
  EXPECT_EQ(watches_.ulidOf(nextWatch()), "B");
}

// As after `mv z a; mkdir z`: the moved folder has got another identifier.
TEST_F(WatchesTest, AWatchThatAnotherFolderHasTakenOverStaysWithThat) {
  const FileDescriptor moved = folder("a");
  ASSERT_EQ(watches_.add("Z", moved.get()), 0);
  ASSERT_EQ(watches_.add("A", moved.get()), 0);
  ASSERT_EQ(watches_.add("Z", folder("z").get()), 0);
  test::writeFile(directory_.file("a/file"), "x");
  EXPECT_EQ(watches_.ulidOf(nextWatch()), "A");
  test::writeFile(directory_.file("z/file"), "x");
  EXPECT_EQ(watches_.ulidOf(nextWatch()), "Z");
}

TEST_F(WatchesTest, RemovingAFolderLeavesTheWatchThatAnotherHasTakenOver) {
  const FileDescriptor moved = folder("a");
  ASSERT_EQ(watches_.add("Z", moved.get()), 0);
  ASSERT_EQ(watches_.add("A", moved.get()), 0);
  watches_.remove("Z");
  test::writeFile(directory_.file("a/file"), "x");
  EXPECT_EQ(watches_.ulidOf(nextWatch()), "A");
}

TEST_F(WatchesTest, AFolderThatNobodyServesAnyMoreIsWatchedNoMore) {
  ASSERT_EQ(watches_.add("A", folder("a").get()), 0);
  ASSERT_EQ(watches_.add("A", folder("b").get()), 0);
  EXPECT_NE(nextWatch(), -1) << "the system tells that the first watch is gone";
  test::writeFile(directory_.file("a/file"), "x");
  EXPECT_EQ(nextWatch(), -1);
}

TEST_F(WatchesTest, WhatTheSystemHasDroppedIsForgotten) {
  ASSERT_EQ(watches_.add("A", folder("a").get()), 0);
  test::writeFile(directory_.file("a/file"), "x");
  const int watch = nextWatch();
  watches_.forget(watch);
  watches_.forget(watch);
  EXPECT_FALSE(watches_.ulidOf(watch));
}

TEST_F(WatchesTest, WhatCannotBeWatchedSaysWhy) {
  EXPECT_NE(watches_.add("A", -1), 0);
  EXPECT_EQ(watches_.add("A", folder("a").get()), 0);
}

}  // namespace
}  // namespace tulo::host
