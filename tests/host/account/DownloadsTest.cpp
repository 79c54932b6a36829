#include "host/account/Downloads.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "host/base/HostError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class DownloadsTest : public testing::Test {
 protected:
  FileDescriptor file() {
    test::writeFile(directory_.file("file"), "hello");
    return FileDescriptor(::open(directory_.file("file").c_str(), O_RDONLY | O_CLOEXEC));
  }
  bool isEmpty() const { return fs::is_empty(container_.pathOf("fp-download")); }

  const test::TemporaryDirectory directory_;
  const Container container_{directory_.file("container")};
  UlidSource ulids_;
  const HostLog log_{false};
  Downloads downloads_{container_, ulids_, log_};
};

TEST_F(DownloadsTest, EachCopyIsOneOfItsOwn) {
  const std::string one = downloads_.handOver(file().get());
  const std::string two = downloads_.handOver(file().get());
  EXPECT_NE(one, two);
  EXPECT_THAT(one, testing::StartsWith(container_.pathOf("fp-download/")));
  test::writeFile(one, "changed");
  EXPECT_EQ(test::readFile(two), "hello");
  EXPECT_EQ(test::readFile(directory_.file("file")), "hello");
}

TEST_F(DownloadsTest, ACopyThatIsTakenBackIsGone) {
  downloads_.takeBack(downloads_.handOver(file().get()));
  EXPECT_TRUE(isEmpty());
}

TEST_F(DownloadsTest, NothingIsLeftOfACopyThatFailed) {
  const FileDescriptor folder(::open(directory_.path().c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_THROW(downloads_.handOver(folder.get()), OperationError);
  EXPECT_TRUE(isEmpty());
}

TEST_F(DownloadsTest, WhatNobodyFetchedGoesWhenItIsOld) {
  downloads_.handOver(file().get());
  const auto now = std::chrono::system_clock::now();
  downloads_.removeUncollected(std::chrono::hours(24), now);
  EXPECT_FALSE(isEmpty());
  downloads_.removeUncollected(std::chrono::hours(24), now + std::chrono::hours(48));
  EXPECT_TRUE(isEmpty());
}

TEST_F(DownloadsTest, TheFolderIsMadeAgainWhenSomebodyHasRemovedIt) {
  fs::remove(container_.pathOf("fp-download"));
  EXPECT_EQ(test::readFile(downloads_.handOver(file().get())), "hello");
}

}  // namespace
}  // namespace tulo::host
