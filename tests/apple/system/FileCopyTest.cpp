// Not Objective-C, where GCC's runtime sees no difference between C++ exceptions.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/FileManager.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

using platform::FileManager;
using platform::FileManagerError;
using platform::URL;

class FileCopyTest : public testing::Test {
 protected:
  FileCopyTest() {
    FileManager::createDirectory(url("tree/inner"));
    writeFile(at("tree/inner/\u00E4"), "bytes");
    std::filesystem::create_symlink("nowhere", at("tree/link"));
  }

  std::string at(const std::string& name) const { return directory_.file(name); }
  URL url(const std::string& name) const { return URL(at(name)); }

  std::ptrdiff_t entries() const {
    return std::distance(std::filesystem::directory_iterator(directory_.path()), {});
  }

  const TemporaryDirectory directory_;
};

TEST_F(FileCopyTest, CopiesFilesAndTreesWithLinksAsLinks) {
  FileManager::copyItem(url("tree"), url("copy/"));
  EXPECT_EQ(readFile(at("copy/inner/\u00E4")), "bytes");
  EXPECT_EQ(std::filesystem::read_symlink(at("copy/link")), "nowhere");
  FileManager::copyItem(url("tree/inner/\u00E4"), url("file"));
  EXPECT_EQ(readFile(at("file")), "bytes");
  EXPECT_EQ(entries(), 3);
}

// The copy stands under its name only when it is whole.
TEST_F(FileCopyTest, AFailureLeavesNothingAndTouchesNothing) {
  writeFile(at("taken"), "somebody else's");
  EXPECT_THROW(FileManager::copyItem(url("tree"), url("taken")), FileManagerError);
  EXPECT_THROW(FileManager::copyItem(url("missing"), url("copy")), FileManagerError);
  EXPECT_THROW(FileManager::copyItem(url("tree"), url("missing/copy")), FileManagerError);
  EXPECT_EQ(readFile(at("taken")), "somebody else's");
  EXPECT_EQ(entries(), 2);
}

TEST_F(FileCopyTest, RefusesPathsThatNameNoItem) {
  for (const std::string path : {"tree/.", "tree/inner/..", "tree/inner/../"}) {
    EXPECT_THROW(FileManager::copyItem(url(path), url("copy")), FileManagerError) << path;
    EXPECT_THROW(FileManager::copyItem(url("tree"), url(path)), FileManagerError) << path;
  }
  EXPECT_EQ(entries(), 1);
}

}  // namespace
}  // namespace tulo::test
