#include "host/account/StagedCopy.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "host/base/Files.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class StagedCopyTest : public testing::Test {
 protected:
  std::unique_ptr<StagedCopy> copyOf(const std::string& name) {
    return std::make_unique<StagedCopy>(openFolderPath(directory_.path()), *claims_.claim(name),
                                        log_);
  }
  bool exists(const std::string& name) const {
    return fs::exists(fs::symlink_status(directory_.file(name)));
  }

  const test::TemporaryDirectory directory_;
  const HostLog log_{false};
  Claims claims_;
};

TEST_F(StagedCopyTest, KnowsTheBytesInAllOfItsFiles) {
  test::writeFile(directory_.file("file"), "12345");
  fs::create_directories(directory_.file("tree/sub"));
  test::writeFile(directory_.file("tree/a"), "123");
  test::writeFile(directory_.file("tree/sub/b"), "12");
  fs::create_symlink("a", directory_.file("tree/link"));
  EXPECT_EQ(copyOf("file")->size(), 5);
  EXPECT_FALSE(copyOf("file")->isFolder());
  const auto tree = copyOf("tree");
  EXPECT_EQ(tree->size(), 5);
  EXPECT_TRUE(tree->isFolder());
}

TEST_F(StagedCopyTest, WhatIsLeftOfItGoesWithTheHold) {
  fs::create_directories(directory_.file("tree/sub"));
  {
    const auto copy = copyOf("tree");
    EXPECT_TRUE(copy->isThere());
    EXPECT_FALSE(claims_.claim("tree"));
  }
  EXPECT_FALSE(exists("tree"));
  EXPECT_TRUE(claims_.claim("tree"));
}

TEST_F(StagedCopyTest, WhatWasTakenOverIsNoFailure) {
  test::writeFile(directory_.file("file"), "x");
  const test::LogRecorder recorder;
  auto copy = copyOf("file");
  fs::rename(directory_.file("file"), directory_.file("taken"));
  copy.reset();
  EXPECT_TRUE(recorder.lines().empty());
  EXPECT_TRUE(exists("taken"));
}

TEST_F(StagedCopyTest, ALinkIsNothingThatCouldBeTakenOver) {
  test::writeFile(directory_.file("precious"), "x");
  fs::create_symlink("precious", directory_.file("link"));
  EXPECT_TRUE(copyOf("link")->isOther());
  EXPECT_FALSE(exists("link"));
  EXPECT_TRUE(exists("precious"));
  EXPECT_FALSE(copyOf("none")->isThere());
}

}  // namespace
}  // namespace tulo::host
