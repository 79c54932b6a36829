#include "service/upload/StagingProbe.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class StagingProbeTest : public ::testing::Test {
 protected:
  StagingProbeTest() { writeFile(contents, "hello"); }

  TemporaryDirectory directory;
  const std::string contents = directory.file("contents");
  const StagingProbe probe{directory.path()};
};

TEST_F(StagingProbeTest, NothingIsInTheWayOfASmallFile) {
  EXPECT_EQ(probe.errorOf(contents), 0);
  std::filesystem::create_directory(directory.file("fp-upload"));
  EXPECT_EQ(probe.errorOf(contents), 0);
}

TEST_F(StagingProbeTest, NothingIsLeftBehind) {
  std::filesystem::create_directory(directory.file("fp-upload"));
  EXPECT_EQ(probe.errorOf(contents), 0);
  EXPECT_TRUE(std::filesystem::is_empty(directory.file("fp-upload")));
}

TEST_F(StagingProbeTest, AFolderInWhichNothingCanBeMadeIsInTheWay) {
  std::filesystem::create_directory_symlink("/proc", directory.file("fp-upload"));
  EXPECT_NE(probe.errorOf(contents), 0);
}

TEST_F(StagingProbeTest, AFileThatHasNoRoomIsInTheWay) {
  // Holes take no room here, and all of it there.
  std::filesystem::resize_file(contents, std::uintmax_t{1} << 42);
  EXPECT_NE(probe.errorOf(contents), 0);
}

TEST_F(StagingProbeTest, ContentsThatCannotBeReadAreInTheWay) {
  EXPECT_EQ(probe.errorOf(directory.file("nothing")), ENOENT);
}

TEST_F(StagingProbeTest, WithoutAContainerNothingIsKnown) {
  EXPECT_EQ(StagingProbe("").errorOf(contents), 0);
  EXPECT_EQ(StagingProbe(directory.file("nowhere")).errorOf(contents), 0);
}

}  // namespace
}  // namespace tulo::test
