// The version is read once in the life of a process, so each case has a process of its own.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>

#include "platform/Deployment.h"
#include "platform/linux/SystemSide.h"
#include "presentation/DirectoryEnumerator.h"
#include "tests/support/Container.h"

namespace tulo::test {
namespace {

using BundleInfo = std::optional<std::map<std::string, std::string>>;

// Writes the anchor of a process with this bundle to standard error and ends the process.
[[noreturn]] void tellAnchor(const BundleInfo& info) {
  platform::setMainBundleInfo(info);
  const Container container;
  DirectoryEnumerator("f:F", "state.db").currentSyncAnchor([](const auto& anchor) {
    std::fprintf(stderr, "anchor=%s;\n", anchor.value().c_str());
  });
  std::exit(0);
}

class BundleVersionDeathTest : public testing::Test {
 protected:
  BundleVersionDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(BundleVersionDeathTest, TheVersionIsTheBundlesShortOne) {
  EXPECT_EXIT(tellAnchor({{{"CFBundleShortVersionString", "1.4.2"}, {"CFBundleVersion", "7"}}}),
              testing::ExitedWithCode(0), "anchor=1\\.4\\.2\\|0;");
}

TEST_F(BundleVersionDeathTest, ABundleWithoutAVersionHasTheVersionZero) {
  EXPECT_EXIT(tellAnchor({{{"CFBundleVersion", "7"}}}), testing::ExitedWithCode(0),
              "anchor=0\\|0;");
}

TEST_F(BundleVersionDeathTest, NoDictionaryMeansTheVersionZero) {
  EXPECT_EXIT(tellAnchor(std::nullopt), testing::ExitedWithCode(0), "anchor=0\\|0;");
}

TEST_F(BundleVersionDeathTest, AnEmptyVersionIsAVersion) {
  EXPECT_EXIT(tellAnchor({{{"CFBundleShortVersionString", ""}}}), testing::ExitedWithCode(0),
              "anchor=\\|0;");
}

TEST_F(BundleVersionDeathTest, TheVersionIsReadOnce) {
  EXPECT_EXIT(
      {
        const std::string before = DirectoryEnumerator::extensionVersion();
        platform::setMainBundleInfo({{{"CFBundleShortVersionString", "changed"}}});
        std::exit(DirectoryEnumerator::extensionVersion() == before && before == deployment::version
                      ? 0
                      : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tulo::test
