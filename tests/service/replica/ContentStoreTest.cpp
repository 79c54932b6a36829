#include "service/replica/ContentStore.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "service/errors/ContentError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class ContentStoreTest : public ::testing::Test {
 protected:
  ContentStoreTest() {
    std::filesystem::create_directories(directory.file("shared/fp-download"));
    std::filesystem::create_directory(directory.file("elsewhere"));
  }

  std::string handedOver(const std::string& bytes,
                         const std::string& folder = "shared/fp-download") {
    const std::string path = directory.file(folder + "/handed over");
    writeFile(path, bytes);
    return path;
  }

  void write(ContentId id, const std::string& bytes) {
    const FileDescriptor file = store.openWritable(id);
    ASSERT_EQ(::pwrite(file.get(), bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()));
  }

  TemporaryDirectory directory;
  ContentStore store{directory.path(), directory.file("shared"), CacheLimits()};
  const ContentId content{7};
};

TEST_F(ContentStoreTest, TakesAFileOver) {
  const std::string source = handedOver("bytes");
  EXPECT_GE(store.take(source, 5, content), 0);
  EXPECT_EQ(readFile(store.path(content)), "bytes");
  EXPECT_FALSE(std::filesystem::exists(source));
}

TEST_F(ContentStoreTest, AFileWithASecondNameIsCopied) {
  const std::string source = handedOver("bytes");
  const std::string second = directory.file("second");
  std::filesystem::create_hard_link(source, second);
  store.take(source, 5, content);
  writeFile(second, "other");
  EXPECT_EQ(readFile(store.path(content)), "bytes");
  EXPECT_FALSE(std::filesystem::exists(source));
}

TEST_F(ContentStoreTest, AFileOfAnotherSizeIsLeftAlone) {
  const std::string source = handedOver("bytes");
  EXPECT_THROW(store.take(source, 4, content), ContentError);
  EXPECT_EQ(readFile(source), "bytes");
  EXPECT_FALSE(std::filesystem::exists(store.path(content)));
}

TEST_F(ContentStoreTest, OnlyARegularFileIsTaken) {
  const std::string link = directory.file("shared/fp-download/link");
  std::filesystem::create_symlink(handedOver("bytes"), link);
  EXPECT_THROW(store.take(link, 5, content), ContentError);
  EXPECT_THROW(store.take(directory.file("shared/fp-download"), 0, content), ContentError);
}

TEST_F(ContentStoreTest, WhatLiesElsewhereIsCopied) {
  const std::string source = handedOver("bytes", "elsewhere");
  store.take(source, 5, content);
  EXPECT_EQ(readFile(store.path(content)), "bytes");
  writeFile(source, "other");
  EXPECT_EQ(readFile(store.path(content)), "bytes");
}

TEST_F(ContentStoreTest, WhatIsInTheContainerIsNotTakenFromIt) {
  const std::string source = handedOver("bytes", "shared");
  EXPECT_THROW(store.take(source, 5, content), ContentError);
  EXPECT_EQ(readFile(source), "bytes");
  EXPECT_FALSE(std::filesystem::exists(store.path(content)));
}

TEST_F(ContentStoreTest, OpensOnlyWhatIsWhole) {
  store.take(handedOver("bytes"), 5, content);
  EXPECT_TRUE(store.open(content, 5));
  EXPECT_THROW(store.open(content, 6), ContentError);
  EXPECT_TRUE(store.openAsIs(content));
  store.remove(content);
  EXPECT_THROW(store.open(content, 5), ContentError);
  EXPECT_THROW(store.openAsIs(content), ContentError);
}

TEST_F(ContentStoreTest, WhatGrowsHereCarriesItsNameUntilTheHostHasIt) {
  store.create(content, "a.txt");
  EXPECT_EQ(ContentStore::nameOf(store.path(content)), "a.txt");
  store.setName(content, "b.txt");
  EXPECT_EQ(ContentStore::nameOf(store.path(content)), "b.txt");
  store.forgetName(content);
  EXPECT_EQ(ContentStore::nameOf(store.path(content)), std::nullopt);
}

TEST_F(ContentStoreTest, ADuplicateIsChangedByItself) {
  store.create(content, "a.txt");
  write(content, "first");
  const ContentId copy(8);
  store.duplicate(content, copy, "b.txt");
  write(copy, "other");
  EXPECT_EQ(readFile(store.path(content)), "first");
  EXPECT_EQ(readFile(store.path(copy)), "other");
  EXPECT_EQ(ContentStore::nameOf(store.path(copy)), "b.txt");
}

TEST_F(ContentStoreTest, OnlyWhatIsThereCanBeSafe) {
  std::vector<ContentId> contents;
  for (std::uint64_t number = 1; number <= 20; ++number) {
    contents.emplace_back(number);
    if (number != 4) store.create(ContentId(number), "n");
  }
  EXPECT_EQ(store.force(ContentId(1)), 0);
  EXPECT_EQ(store.force(ContentId(4)), ENOENT);
  EXPECT_EQ(store.makeDurable({ContentId(3), ContentId(4)}), std::vector<ContentId>{ContentId(3)});
  std::erase(contents, ContentId(4));
  std::vector<ContentId> asked = contents;
  asked.emplace_back(4U);
  EXPECT_EQ(store.makeDurable(asked), contents);
}

}  // namespace
}  // namespace tulo::test
