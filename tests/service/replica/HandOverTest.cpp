#include "service/replica/HandOver.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "service/errors/ContentError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class HandOverTest : public ::testing::Test {
 protected:
  HandOverTest() {
    std::filesystem::create_directories(in("fp-download/below"));
    std::filesystem::create_directory(in("fp-upload"));
    std::filesystem::create_directory(directory.file("home"));
    for (const std::string& path : {given(), in("state.db"), in("fp-upload/staged"), thesis()})
      writeFile(path, "bytes");
  }

  std::string in(const std::string& path) const { return directory.file("container/" + path); }
  std::string given() const { return in("fp-download/copy"); }
  std::string thesis() const { return directory.file("home/thesis.odt"); }

  // Whatever is done with it, the file stays as it is.
  void expectRefused(const std::string& path) {
    EXPECT_THROW(handOver.isGiven(path), ContentError) << path;
    EXPECT_THROW(handOver.open(path), ContentError) << path;
    handOver.discard(path);
    EXPECT_TRUE(std::filesystem::exists(path)) << path;
  }
  void expectOutside(const std::string& path) {
    EXPECT_FALSE(handOver.isGiven(path)) << path;
    EXPECT_TRUE(handOver.open(path)) << path;
    handOver.discard(path);
    EXPECT_TRUE(std::filesystem::exists(path)) << path;
  }
  void expectGiven(const std::string& path) {
    EXPECT_TRUE(handOver.isGiven(path)) << path;
    EXPECT_TRUE(handOver.open(path)) << path;
    handOver.discard(path);
    EXPECT_FALSE(std::filesystem::exists(path)) << path;
  }

  TemporaryDirectory directory;
  HandOver handOver{directory.file("container")};
};

TEST_F(HandOverTest, WhatLiesInThePlaceForItIsGiven) {
  expectGiven(given());
  writeFile(in("fp-download/below/copy"), "bytes");
  expectGiven(in("fp-upload/../fp-download/below/copy"));
}

TEST_F(HandOverTest, EverythingElseInTheContainerIsRefused) {
  expectRefused(in("state.db"));
  expectRefused(in("fp-upload/staged"));
  expectRefused(in("fp-download/../state.db"));
  expectRefused(in("fp-download/below/../../fp-upload/staged"));
  writeFile(in("fp-download-2"), "bytes");
  expectRefused(in("fp-download-2"));
}

TEST_F(HandOverTest, WhatLiesElsewhereIsAnybodys) {
  expectOutside(thesis());
  expectOutside(in("fp-download/../../home/thesis.odt"));
  writeFile(directory.file("container-2"), "bytes");
  expectOutside(directory.file("container-2"));
}

TEST_F(HandOverTest, LinksLeadToWhereTheyLead) {
  std::filesystem::create_directory_symlink(directory.file("home"), in("fp-download/out"));
  expectOutside(in("fp-download/out/thesis.odt"));
  std::filesystem::create_directory_symlink(in("fp-upload"), in("fp-download/up"));
  expectRefused(in("fp-download/up/staged"));
  std::filesystem::create_directory_symlink(directory.file("container"), directory.file("way"));
  expectGiven(directory.file("way/fp-download/copy"));
  expectRefused(directory.file("way/state.db"));
}

TEST_F(HandOverTest, APlaceThatIsALinkIsNone) {
  std::filesystem::rename(in("fp-download"), in("former"));
  std::filesystem::create_directory_symlink(directory.file("home"), in("fp-download"));
  expectOutside(in("fp-download/thesis.odt"));
  std::filesystem::remove(in("fp-download"));
  std::filesystem::create_directory_symlink(directory.file("container"), in("fp-download"));
  expectRefused(in("fp-download/state.db"));
}

TEST_F(HandOverTest, OnlyARegularFileIsOpenedOrRemoved) {
  std::filesystem::create_symlink(in("state.db"), in("fp-download/link"));
  std::filesystem::create_symlink(thesis(), in("fp-download/thesis"));
  ASSERT_EQ(::mkfifo(in("fp-download/pipe").c_str(), 0600), 0);
  for (const char* name : {"link", "thesis", "pipe", "below", "missing"}) {
    EXPECT_THROW(handOver.open(in("fp-download/") + name), ContentError) << name;
    handOver.discard(in("fp-download/") + name);
  }
  EXPECT_TRUE(std::filesystem::exists(in("fp-download/below")));
  EXPECT_EQ(readFile(in("state.db")), "bytes");
  EXPECT_EQ(readFile(thesis()), "bytes");
}

TEST_F(HandOverTest, AnotherNameOfTheIndexIsNotTheIndex) {
  std::filesystem::create_hard_link(in("state.db"), in("fp-download/index"));
  expectGiven(in("fp-download/index"));
  EXPECT_EQ(readFile(in("state.db")), "bytes");
}

TEST_F(HandOverTest, WithoutAContainerNothingIsGiven) {
  const HandOver none("");
  EXPECT_FALSE(none.isGiven(given()));
  none.discard(given());
  none.discard("");
  EXPECT_TRUE(std::filesystem::exists(given()));
}

}  // namespace
}  // namespace tulo::test
