#include "service/listing/IndexProbe.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/FileProvider.h"
#include "platform/linux/FileDescriptor.h"
#include "tests/support/IndexBuilder.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class IndexProbeTest : public ::testing::Test {
 protected:
  IndexProbeTest() {
    IndexBuilder index(path);
    index.folder("A", "Docs").folder("B", "Deep", "A");
    index.file({.ulid = "1", .name = "top.txt"});
    index.file({.ulid = "2", .name = "inside.txt", .folder = "A"});
    index.file({.ulid = "3", .name = "inside, too.txt", .folder = "A"});
  }

  // The errno that a question ends with, 0 when it is answered.
  template <typename Question>
  static int errorOf(const Question& question) {
    try {
      question();
      return 0;
    } catch (const SourceError& error) {
      return error.number();
    }
  }
  int errorOfBoth() const {
    const int one = errorOf([&] { probe.children("f:A"); });
    const int other = errorOf([&] { probe.has("i:1"); });
    EXPECT_EQ(one, other);
    return one;
  }

  static std::string root() { return platform::NSFileProviderRootContainerItemIdentifier(); }

  TemporaryDirectory directory;
  const std::string path = directory.file("state.db");
  const IndexProbe probe{path, directory.file("fp.sock")};
};

TEST_F(IndexProbeTest, CountsWhatAContainerHas) {
  EXPECT_EQ(probe.children(root()), 2);
  EXPECT_EQ(probe.children("f:A"), 3);
  EXPECT_EQ(probe.children("f:B"), 0);
  EXPECT_EQ(probe.children("f:unknown"), 0);
  EXPECT_EQ(probe.children("i:1"), 0);
}

TEST_F(IndexProbeTest, KnowsItemsByTheirKind) {
  EXPECT_TRUE(probe.has("f:B"));
  EXPECT_TRUE(probe.has("i:3"));
  EXPECT_FALSE(probe.has("i:B"));
  EXPECT_FALSE(probe.has("f:3"));
  EXPECT_FALSE(probe.has("something else"));
}

TEST_F(IndexProbeTest, AnIndexThatIsNotThereIsNotEmpty) {
  std::filesystem::rename(path, path + ".away");
  EXPECT_EQ(errorOfBoth(), EHOSTDOWN);
  EXPECT_FALSE(std::filesystem::exists(path));
  std::filesystem::rename(path + ".away", path);
  EXPECT_EQ(errorOfBoth(), 0);
}

TEST_F(IndexProbeTest, AMissingTableOrColumnIsAnError) {
  IndexBuilder(path).execute("ALTER TABLE items RENAME COLUMN mtime_unix TO mtime");
  EXPECT_EQ(errorOfBoth(), EIO);
  IndexBuilder(path).execute("DROP TABLE items");
  EXPECT_EQ(errorOfBoth(), EIO);
}

TEST_F(IndexProbeTest, ADamagedFileIsAnError) {
  damage(path, 0, std::string(4096, 'x'));
  EXPECT_EQ(errorOfBoth(), EIO);
}

TEST_F(IndexProbeTest, AnIndexThatStaysLockedIsAnErrorOneThatIsLetGoOfIsNot) {
  IndexBuilder writer(path);
  writer.execute("BEGIN EXCLUSIVE");
  EXPECT_EQ(errorOf([&] { probe.children("f:A"); }), EIO);
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    writer.execute("COMMIT");
  });
  EXPECT_EQ(errorOf([&] { probe.children("f:A"); }), 0);
  other.join();
}

TEST_F(IndexProbeTest, WithoutADescriptorItSaysThatThereIsNone) {
  struct rlimit before = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  struct rlimit few = before;
  few.rlim_cur = 64;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  std::vector<FileDescriptor> all;
  for (;;) {
    FileDescriptor next(::dup(0));
    if (!next) break;
    all.push_back(std::move(next));
  }
  const int number = errorOf([&] { probe.children("f:A"); });
  all.clear();
  ::setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(number, EMFILE);
  EXPECT_EQ(errorOfBoth(), 0);
}

TEST_F(IndexProbeTest, ANewIndexCountsOnlyOnceAnotherHostServesIt) {
  writeFile(directory.file("fp.sock"), "");
  EXPECT_EQ(probe.children("f:A"), 3);
  // Both exist for a moment, so that the second is another file.
  IndexBuilder(directory.file("new.db")).folder("A", "Docs");
  std::filesystem::rename(directory.file("new.db"), path);
  EXPECT_EQ(errorOfBoth(), EHOSTDOWN);
  writeFile(directory.file("new.sock"), "");
  std::filesystem::rename(directory.file("new.sock"), directory.file("fp.sock"));
  EXPECT_EQ(errorOfBoth(), 0);
  EXPECT_EQ(probe.children("f:A"), 0);
}

TEST_F(IndexProbeTest, OrOnceItHasLainThereForAWhile) {
  const IndexProbe impatient{path, directory.file("fp.sock"), std::chrono::milliseconds(0)};
  EXPECT_EQ(impatient.children("f:A"), 3);
  IndexBuilder(directory.file("new.db")).folder("A", "Docs");
  std::filesystem::rename(directory.file("new.db"), path);
  EXPECT_EQ(impatient.children("f:A"), 0);
}

}  // namespace
}  // namespace tulo::test
