#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "platform/FileManager.h"
#include "platform/linux/FolderEntries.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::platform {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::writeFile;

std::string randomBytes(std::size_t size) {
  std::mt19937_64 generator(size);
  std::string bytes(size, '\0');
  for (char& byte : bytes)
    byte = static_cast<char>(generator());
  return bytes;
}

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
  return status;
}

void setTime(const std::string& path, time_t seconds) {
  const timespec times[2] = {{seconds, 123456789}, {seconds, 123456789}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

// Bounds the open files of this process for a while.
class LimitedOpenFiles {
 public:
  explicit LimitedOpenFiles(rlim_t files) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit limit{files, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  ~LimitedOpenFiles() { setrlimit(RLIMIT_NOFILE, &before_); }
  LimitedOpenFiles(const LimitedOpenFiles&) = delete;
  LimitedOpenFiles& operator=(const LimitedOpenFiles&) = delete;

 private:
  rlimit before_{};
};

class CopyItemTest : public testing::Test {
 protected:
  CopyItemTest() {
    fs::create_directory(at("from"));
    fs::create_directory(at("to"));
  }

  std::string at(const std::string& name) const { return directory_.file(name); }

  void copy(const std::string& source, const std::string& destination) const {
    FileManager::copyItem(URL(at(source)), URL(at(destination)));
  }

  // What the failed copy says; nothing must be left in the folder "to".
  std::string failureOf(const std::string& source) const {
    try {
      copy(source, "to/copy");
    } catch (const FileManagerError& failure) {
      EXPECT_TRUE(fs::is_empty(at("to")));
      return failure.what();
    }
    return "no failure";
  }

  const test::TemporaryDirectory directory_;
};

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST_F(CopyItemTest, GivesTheSameBytesAndLeavesTheSource) {
  for (const std::size_t size : {0U, 1U, 4095U, 4096U, 300'000U, 3'000'001U}) {
    const std::string bytes = randomBytes(size);
    const std::string name = std::to_string(size);
    writeFile(at("from/" + name), bytes);
    copy("from/" + name, "to/" + name);
    EXPECT_EQ(readFile(at("to/" + name)), bytes);
    EXPECT_EQ(readFile(at("from/" + name)), bytes);
  }
}

TEST_F(CopyItemTest, KeepsModeModificationTimeAndUserAttributes) {
  writeFile(at("from/file"), "x");
  const int attribute = setxattr(at("from/file").c_str(), "user.test", "value\0", 6, 0);
  chmod(at("from/file").c_str(), 0440);
  setTime(at("from/file"), 1'000'000'000);
  copy("from/file", "to/file");
  const struct stat status = statusOf(at("to/file"));
  EXPECT_EQ(status.st_mode & 07777U, 0440U);
  EXPECT_EQ(status.st_mtim.tv_sec, 1'000'000'000);
  EXPECT_EQ(status.st_mtim.tv_nsec, 123456789);
  if (attribute != 0) return;
  char value[16];
  ASSERT_EQ(getxattr(at("to/file").c_str(), "user.test", value, sizeof value), 6);
  EXPECT_EQ(std::string(value, 6), std::string("value\0", 6));
}

TEST_F(CopyItemTest, CopiesAcrossFileSystems) {
  const std::string bytes = randomBytes(1'500'000);
  writeFile(at("from/file"), bytes);
  std::string other = "/dev/shm/tulo-test-XXXXXX";
  ASSERT_NE(mkdtemp(other.data()), nullptr);
  FileManager::copyItem(URL(at("from/file")), URL(other + "/file"));
  EXPECT_EQ(readFile(other + "/file"), bytes);
  FileManager::copyItem(URL(other), URL(at("to/back")));
  EXPECT_EQ(readFile(at("to/back/file")), bytes);
  fs::remove_all(other);
}

TEST_F(CopyItemTest, KeepsHolesAsHoles) {
  constexpr off_t size = 8 << 20;
  {
    const FileDescriptor file = openFile(AT_FDCWD, at("from/sparse"), O_CREAT | O_WRONLY, 0600);
    ASSERT_EQ(pwrite(file.get(), "begin", 5, 1 << 20), 5);
    ASSERT_EQ(pwrite(file.get(), "middle", 6, 5 << 20), 6);
    ASSERT_EQ(ftruncate(file.get(), size), 0);
  }
  copy("from/sparse", "to/sparse");
  const struct stat status = statusOf(at("to/sparse"));
  EXPECT_EQ(status.st_size, size);
  EXPECT_LT(status.st_blocks * 512, 1 << 20);
  EXPECT_EQ(readFile(at("to/sparse")), readFile(at("from/sparse")));
}

TEST_F(CopyItemTest, CopiesAFileThatDoesNotTellItsSize) {
  FileManager::copyItem(URL("/proc/cpuinfo"), URL(at("to/file")));
  EXPECT_FALSE(readFile(at("to/file")).empty());
}

TEST_F(CopyItemTest, CopiesAFileThatGrowsAndShrinksMeanwhile) {
  writeFile(at("from/file"), "begin");
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    const FileDescriptor file = openFile(AT_FDCWD, at("from/file"), O_WRONLY);
    const std::string bytes(50'000, 'y');
    for (int round = 0; !stop; ++round) {
      EXPECT_EQ(ftruncate(file.get(), round % 2 == 0 ? 0 : 400'000), 0);
      EXPECT_EQ(pwrite(file.get(), bytes.data(), bytes.size(), 1000), 50'000);
    }
  });
  for (int round = 0; round < 50; ++round) {
    const std::string name = "to/" + std::to_string(round);
    EXPECT_NO_THROW(copy("from/file", name));
    EXPECT_LE(statusOf(at(name)).st_size, 400'000);
  }
  stop = true;
  writer.join();
}

TEST_F(CopyItemTest, CopiesTreesWholeWithLinksAsLinks) {
  fs::create_directories(at("from/tree/a/b"));
  fs::create_directory(at("from/tree/empty"));
  writeFile(at("from/tree/a/b/file"), "deep");
  fs::create_symlink("file", at("from/tree/a/b/link"));
  fs::create_symlink("/nowhere", at("from/tree/broken"));
  fs::create_directory_symlink("..", at("from/tree/a/up"));
  setTime(at("from/tree/a/b/link"), 900'000'000);
  chmod(at("from/tree/empty").c_str(), 0500);
  for (const char* folder : {"/a/b", "/a", "/empty", ""}) {
    setTime(at("from/tree") + folder, 800'000'000);
  }
  copy("from/tree", "to/tree");
  EXPECT_EQ(readFile(at("to/tree/a/b/file")), "deep");
  EXPECT_EQ(fs::read_symlink(at("to/tree/a/b/link")), "file");
  EXPECT_EQ(fs::read_symlink(at("to/tree/broken")), "/nowhere");
  EXPECT_EQ(fs::read_symlink(at("to/tree/a/up")), "..");
  EXPECT_EQ(statusOf(at("to/tree/empty")).st_mode & 07777U, 0500U);
  EXPECT_EQ(statusOf(at("to/tree/a/b/link")).st_mtim.tv_sec, 900'000'000);
  for (const char* folder : {"/a/b", "/a", "/empty", ""}) {
    EXPECT_EQ(statusOf(at("to/tree") + folder).st_mtim.tv_sec, 800'000'000) << folder;
  }
}

TEST_F(CopyItemTest, CopiesALinkAsALinkAlsoAtTheTop) {
  writeFile(at("from/file"), "x");
  fs::create_symlink("file", at("from/link"));
  copy("from/link", "to/link");
  EXPECT_EQ(fs::read_symlink(at("to/link")), "file");
}

TEST_F(CopyItemTest, TakesPathsWithASlashAtTheEnd) {
  fs::create_directory(at("from/tree"));
  writeFile(at("from/tree/file"), "x");
  copy("from/tree/", "to/tree/");
  EXPECT_EQ(readFile(at("to/tree/file")), "x");
}

// Deeper than one path can be long and than one process may have files open.
TEST_F(CopyItemTest, CopiesAndRemovesTreesOfAnyDepth) {
  constexpr int depth = 300;
  const std::string name = "a-folder-in-deep";
  const LimitedOpenFiles limit(100);
  fs::create_directory(at("from/deep"));
  FileDescriptor folder = openFile(AT_FDCWD, at("from/deep"), O_RDONLY | O_DIRECTORY);
  for (int level = 0; level < depth; ++level) {
    ASSERT_EQ(mkdirat(folder.get(), name.c_str(), 0700), 0);
    folder = openFile(folder.get(), name, O_RDONLY | O_DIRECTORY);
  }
  { const FileDescriptor file = openFile(folder.get(), "bottom", O_CREAT | O_WRONLY, 0600); }
  copy("from/deep", "to/deep");
  folder = openFile(AT_FDCWD, at("to/deep"), O_RDONLY | O_DIRECTORY);
  for (int level = 0; level < depth; ++level) {
    folder = openFile(folder.get(), name, O_RDONLY | O_DIRECTORY);
  }
  EXPECT_TRUE(openFile(folder.get(), "bottom", O_RDONLY));
  FileManager::removeItem(URL(at("from/deep")));
  FileManager::removeItem(URL(at("to/deep")));
  EXPECT_TRUE(fs::is_empty(at("from")));
  EXPECT_TRUE(fs::is_empty(at("to")));
}

TEST_F(CopyItemTest, NeverReplacesWhatStandsAtTheDestination) {
  writeFile(at("from/file"), "new");
  writeFile(at("to/file"), "old");
  fs::create_symlink("nowhere", at("to/link"));
  fs::create_directory(at("to/folder"));
  for (const char* taken : {"to/file", "to/link", "to/folder"}) {
    EXPECT_THROW(copy("from/file", taken), FileManagerError) << taken;
  }
  EXPECT_EQ(readFile(at("to/file")), "old");
  EXPECT_EQ(std::distance(fs::directory_iterator(at("to")), fs::directory_iterator()), 3);
}

TEST_F(CopyItemTest, OneOfTwoCopiesToTheSameNameWins) {
  writeFile(at("from/a"), std::string(200'000, 'a'));
  writeFile(at("from/b"), std::string(200'000, 'b'));
  std::atomic<int> succeeded = 0;
  const auto attempt = [&](const std::string& source) {
    try {
      copy(source, "to/copy");
      ++succeeded;
    } catch (const FileManagerError&) {
    }
  };
  std::thread first([&] { attempt("from/a"); });
  std::thread second([&] { attempt("from/b"); });
  first.join();
  second.join();
  EXPECT_EQ(succeeded, 1);
  EXPECT_EQ(readFile(at("to/copy")).size(), 200'000U);
  EXPECT_EQ(std::distance(fs::directory_iterator(at("to")), fs::directory_iterator()), 1);
}

TEST_F(CopyItemTest, AMissingSourceIsAnError) {
  const std::string failure = failureOf("from/none");
  EXPECT_TRUE(contains(failure, at("from/none"))) << failure;
  EXPECT_TRUE(contains(failure, "No such file or directory")) << failure;
}

TEST_F(CopyItemTest, AMissingFolderOfTheDestinationIsAnError) {
  writeFile(at("from/file"), "x");
  EXPECT_THROW(copy("from/file", "none/file"), FileManagerError);
  EXPECT_FALSE(fs::exists(at("none")));
}

TEST_F(CopyItemTest, RefusesPipesSocketsAndDevicesWithoutOpeningThem) {
  mkfifo(at("from/pipe").c_str(), 0600);
  EXPECT_TRUE(contains(failureOf("from/pipe"), "a pipe cannot be copied"));
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  at("from/s").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_TRUE(contains(failureOf("from/s"), "a socket cannot be copied"));
  EXPECT_THROW(FileManager::copyItem(URL("/dev/zero"), URL(at("to/copy"))), FileManagerError);
  EXPECT_TRUE(fs::is_empty(at("to")));
}

TEST_F(CopyItemTest, AFailureDeepInsideATreeLeavesNothing) {
  fs::create_directories(at("from/tree/a/b"));
  writeFile(at("from/tree/a/file"), "x");
  writeFile(at("from/tree/file"), "x");
  fs::create_symlink("x", at("from/tree/a/b/link"));
  mkfifo(at("from/tree/a/b/pipe").c_str(), 0600);
  const std::string failure = failureOf("from/tree");
  EXPECT_TRUE(contains(failure, at("from/tree/a/b/pipe") + ": a pipe")) << failure;
}

TEST_F(CopyItemTest, AFolderIsNotCopiedIntoItself) {
  fs::create_directories(at("from/tree/inner"));
  EXPECT_THROW(copy("from/tree", "from/tree/copy"), FileManagerError);
  EXPECT_THROW(copy("from/tree", "from/tree/inner/copy"), FileManagerError);
  fs::create_directory_symlink("tree/inner", at("from/back"));
  EXPECT_THROW(copy("from/tree", "from/back/copy"), FileManagerError);
  EXPECT_TRUE(fs::is_empty(at("from/tree/inner")));
  EXPECT_EQ(std::distance(fs::directory_iterator(at("from/tree")), fs::directory_iterator()), 1);
}

TEST_F(CopyItemTest, RefusesPathsThatNameNoItem) {
  writeFile(at("from/file"), "x");
  fs::create_directories(at("from/tree/inner"));
  for (const std::string path : {"from/tree/.", "from/tree/inner/.."}) {
    EXPECT_THROW(FileManager::copyItem(URL(at(path)), URL(at("to/copy"))), FileManagerError);
    EXPECT_THROW(FileManager::copyItem(URL(at("from/file")), URL(at(path))), FileManagerError);
  }
  const std::string withNul = at("to/copy") + std::string("\0", 1);
  EXPECT_THROW(FileManager::copyItem(URL(at("from/file")), URL(withNul)), FileManagerError);
  EXPECT_TRUE(fs::is_empty(at("to")));
}

// A bound on the size of files stands in for a full disk where nothing can be mounted.
class LimitedFileSize {
 public:
  explicit LimitedFileSize(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before_);
    handler_ = signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~LimitedFileSize() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  LimitedFileSize(const LimitedFileSize&) = delete;
  LimitedFileSize& operator=(const LimitedFileSize&) = delete;

 private:
  rlimit before_{};
  void (*handler_)(int) = nullptr;
};

TEST_F(CopyItemTest, AFileThatIsTooLargeForTheTargetLeavesNothing) {
  fs::create_directory(at("from/tree"));
  writeFile(at("from/tree/small"), "x");
  writeFile(at("from/tree/large"), randomBytes(2'000'000));
  const LimitedFileSize limit(1'000'000);
  const std::string failure = failureOf("from/tree");
  EXPECT_TRUE(contains(failure, at("from/tree/large") + ": File too large")) << failure;
}

TEST_F(CopyItemTest, AFullDiskLeavesNothing) {
  writeFile(at("from/file"), randomBytes(3'000'000));
  fs::create_directory(at("to/mounted"));
  if (mount("tmpfs", at("to/mounted").c_str(), "tmpfs", 0, "size=1m") != 0) {
    GTEST_SKIP() << "no right to mount a small file system here";
  }
  std::string failure;
  try {
    copy("from/file", "to/mounted/copy");
  } catch (const FileManagerError& error) {
    failure = error.what();
  }
  EXPECT_TRUE(contains(failure, "No space left on device")) << failure;
  EXPECT_TRUE(fs::is_empty(at("to/mounted")));
  EXPECT_EQ(umount(at("to/mounted").c_str()), 0);
}

}  // namespace
}  // namespace tulo::platform
