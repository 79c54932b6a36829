#include "host/account/Staging.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "host/base/HostError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class StagingTest : public testing::Test {
 protected:
  std::string stage(const std::string& name) {
    const std::string path = container_.pathOf("fp-upload/" + name);
    test::writeFile(path, "hello");
    return path;
  }
  std::string refusal(const std::string& path) {
    try {
      staging_.claim(path);
      return "none";
    } catch (const OperationError& error) {
      return error.kind();
    }
  }

  const test::TemporaryDirectory directory_;
  const Container container_{directory_.file("container")};
  const HostLog log_{false};
  Staging staging_{container_, log_};
};

TEST_F(StagingTest, ACopyIsHeldByTheRequestThatNamesIt) {
  const std::string path = stage("one");
  {
    const auto copy = staging_.claim(path);
    EXPECT_EQ(copy->name(), "one");
    EXPECT_EQ(copy->size(), 5);
    EXPECT_EQ(refusal(path), "bad_request") << "another request holds it";
    EXPECT_TRUE(fs::exists(path));
  }
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(refusal(path), "not_found");
}

TEST_F(StagingTest, OnlyWhatLiesDirectlyInItsFolderCanBeClaimed) {
  test::writeFile(directory_.file("outside"), "precious");
  fs::create_directory(container_.pathOf("fp-upload/tree"));
  test::writeFile(container_.pathOf("fp-upload/tree/inner"), "precious");
  for (const std::string& path :
       {directory_.file("outside"), container_.pathOf("fp-upload"), container_.pathOf("fp-upload/"),
        container_.pathOf("fp-upload/.."), container_.pathOf("fp-upload/tree/inner"),
        container_.pathOf("fp-upload/none/x"), std::string("outside"), std::string()}) {
    EXPECT_EQ(refusal(path), "bad_request") << path;
  }
  EXPECT_EQ(test::readFile(directory_.file("outside")), "precious");
  EXPECT_EQ(test::readFile(container_.pathOf("fp-upload/tree/inner")), "precious");
}

TEST_F(StagingTest, AnotherWayToTheSameFolderLeadsToTheSameCopy) {
  stage("one");
  fs::create_symlink(container_.path(), directory_.file("alias"));
  EXPECT_EQ(staging_.claim(directory_.file("alias/fp-upload/one"))->size(), 5);
}

TEST_F(StagingTest, ALinkIsRefusedAndGoes) {
  test::writeFile(directory_.file("precious"), "precious");
  const std::string link = container_.pathOf("fp-upload/link");
  fs::create_symlink(directory_.file("precious"), link);
  EXPECT_EQ(refusal(link), "bad_request");
  EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
  EXPECT_EQ(test::readFile(directory_.file("precious")), "precious");
}

TEST_F(StagingTest, OldCopiesGoButThoseThatARequestHolds) {
  const std::string held = stage("held");
  const std::string forgotten = stage("forgotten");
  const auto copy = staging_.claim(held);
  const auto later = std::chrono::system_clock::now() + std::chrono::hours(48);
  staging_.removeUncollected(std::chrono::hours(24), later);
  EXPECT_TRUE(fs::exists(held));
  EXPECT_FALSE(fs::exists(forgotten));
}

}  // namespace
}  // namespace tulo::host
