#include "host/base/FileCopies.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "host/base/EntryStat.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class FileCopiesTest : public testing::Test {
 protected:
  const test::TemporaryDirectory directory_;
  const FileDescriptor folder_ = openFolderPath(directory_.path());
};

TEST_F(FileCopiesTest, ContentsArriveWhole) {
  std::string large;
  while (large.size() < 3'000'000)
    large += std::to_string(large.size()) + " ";
  test::writeFile(directory_.file("from"), large);
  const FileDescriptor from = openFile(folder_.get(), "from");
  const FileDescriptor to(::openat(folder_.get(), "to", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  copyContents(from.get(), to.get());
  EXPECT_TRUE(test::readFile(directory_.file("to")) == large);
}

TEST_F(FileCopiesTest, FilesThatPretendToBeEmptyAreReadToTheirEnd) {
  const FileDescriptor from(::open("/proc/self/status", O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(statDescriptor(from.get()).size, 0);
  const FileDescriptor to(::openat(folder_.get(), "to", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  copyContents(from.get(), to.get());
  EXPECT_THAT(test::readFile(directory_.file("to")), testing::HasSubstr("Pid:"));
}

TEST_F(FileCopiesTest, ATreeIsCopiedWithItsLinksTimesAndPermissions) {
  fs::create_directories(directory_.file("tree/sub"));
  test::writeFile(directory_.file("tree/sub/run"), "x");
  ASSERT_EQ(::chmod(directory_.file("tree/sub/run").c_str(), 0755), 0);
  fs::create_symlink("sub/run", directory_.file("tree/link"));
  const timespec times[2] = {{0, UTIME_OMIT}, {-10, 500'000'000}};
  ASSERT_EQ(::utimensat(folder_.get(), "tree/sub/run", times, 0), 0);
  copyTree(folder_.get(), "tree", folder_.get(), "copy");
  EXPECT_EQ(test::readFile(directory_.file("copy/sub/run")), "x");
  EXPECT_EQ(fs::read_symlink(directory_.file("copy/link")), "sub/run");
  const FileDescriptor sub(::openat(folder_.get(), "copy/sub", O_PATH | O_CLOEXEC));
  const EntryStat copied = *statEntry(sub.get(), "run");
  EXPECT_EQ(copied.mode, 0755U);
  EXPECT_EQ(copied.modified, DiskTime(std::chrono::milliseconds(-9500)));
}

TEST_F(FileCopiesTest, SpecialFilesAreLeftOut) {
  fs::create_directory(directory_.file("tree"));
  ASSERT_EQ(::mkfifo(directory_.file("tree/pipe").c_str(), 0600), 0);
  copyTree(folder_.get(), "tree", folder_.get(), "copy");
  EXPECT_TRUE(fs::is_empty(directory_.file("copy")));
}

TEST_F(FileCopiesTest, NothingIsOverwritten) {
  test::writeFile(directory_.file("a"), "a");
  test::writeFile(directory_.file("b"), "b");
  EXPECT_THROW(copyTree(folder_.get(), "a", folder_.get(), "b"), OperationError);
  EXPECT_EQ(test::readFile(directory_.file("b")), "b");
  EXPECT_THROW(copyTree(folder_.get(), "none", folder_.get(), "c"), OperationError);
}

}  // namespace
}  // namespace tulo::host
