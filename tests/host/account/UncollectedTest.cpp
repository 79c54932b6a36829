#include "host/account/Uncollected.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "host/base/Files.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class UncollectedTest : public testing::Test {
 protected:
  std::vector<std::string> removed(std::chrono::hours later, const std::string& used = {}) {
    return removeUncollected(
        folder_.get(), std::chrono::hours(24), std::chrono::system_clock::now() + later,
        [&](const std::string& name) { return name == used; }, log_);
  }

  const test::TemporaryDirectory directory_;
  const FileDescriptor folder_ = openFolderPath(directory_.path());
  const HostLog log_{false};
};

TEST_F(UncollectedTest, AgeIsWhatDecides) {
  test::writeFile(directory_.file("a"), "x");
  EXPECT_THAT(removed(std::chrono::hours(12)), IsEmpty());
  EXPECT_THAT(removed(std::chrono::hours(48), "a"), IsEmpty()) << "in use";
  EXPECT_THAT(removed(std::chrono::hours(48)), ElementsAre("a"));
  EXPECT_TRUE(fs::is_empty(directory_.path()));
}

TEST_F(UncollectedTest, TheTimeOfTheContentsDoesNotCount) {
  test::writeFile(directory_.file("a"), "x");
  fs::last_write_time(directory_.file("a"),
                      fs::file_time_type::clock::now() - std::chrono::hours(24 * 365));
  EXPECT_THAT(removed(std::chrono::hours(0)), IsEmpty());
}

TEST_F(UncollectedTest, TreesGoAsAWhole) {
  fs::create_directories(directory_.file("tree/sub"));
  EXPECT_THAT(removed(std::chrono::hours(48)), ElementsAre("tree"));
  EXPECT_TRUE(fs::is_empty(directory_.path()));
}

}  // namespace
}  // namespace tulo::host
