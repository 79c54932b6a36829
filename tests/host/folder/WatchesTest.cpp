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
