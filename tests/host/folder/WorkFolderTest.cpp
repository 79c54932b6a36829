#include "host/folder/WorkFolder.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class WorkFolderTest : public testing::Test {
 protected:
  const test::TemporaryDirectory directory_;
  const FileDescriptor root_ = openFolderPath(directory_.path());
  const WorkFolder work_{root_.get()};
};

TEST_F(WorkFolderTest, IsMadeWhenItIsNeeded) {
  EXPECT_FALSE(work_.isThere());
  EXPECT_TRUE(work_.open());
  EXPECT_TRUE(work_.open());
  EXPECT_TRUE(work_.isThere());
  EXPECT_TRUE(fs::is_directory(directory_.file(".tulo-host")));
}

TEST_F(WorkFolderTest, IsClearedWithAllThatIsInIt) {
  work_.open();
  fs::create_directories(directory_.file(".tulo-host/a/b"));
  work_.clear();
  EXPECT_FALSE(work_.isThere());
  EXPECT_NO_THROW(work_.clear());
}

TEST_F(WorkFolderTest, ALinkInItsPlaceIsNotFollowed) {
  fs::create_directory(directory_.file("precious"));
  test::writeFile(directory_.file("precious/a"), "x");
  fs::create_directory_symlink("precious", directory_.file(".tulo-host"));
  EXPECT_THROW(work_.open(), OperationError);
  work_.clear();
  EXPECT_TRUE(fs::exists(directory_.file("precious/a")));
}

TEST_F(WorkFolderTest, WithoutAFolderThereIsNone) {
  EXPECT_THROW(WorkFolder(-1), OperationError);
}

}  // namespace
}  // namespace tulo::host
