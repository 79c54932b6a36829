#include "service/desktop/ThumbnailMisses.h"

#include <gtest/gtest.h>

#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

class ThumbnailMissesTest : public testing::Test {
 protected:
  std::chrono::steady_clock::time_point now;
  ThumbnailMisses misses{[this] { return now; }};
  const ThumbnailFile file{"i:1", {"/a.png", atSecond(1'700'000'000), 5}};
};

TEST_F(ThumbnailMissesTest, AMissIsRememberedForAWhile) {
  EXPECT_FALSE(misses.has(file));
  misses.add(file);
  EXPECT_TRUE(misses.has(file));
  now += ThumbnailMisses::kRemembered - std::chrono::seconds(1);
  EXPECT_TRUE(misses.has(file));
  now += std::chrono::seconds(1);
  EXPECT_FALSE(misses.has(file));
}

TEST_F(ThumbnailMissesTest, AnotherFileAndAnotherVersionAreNoMiss) {
  misses.add(file);
  EXPECT_FALSE(misses.has({"i:2", file.original}));
  ThumbnailFile later = file;
  ++later.original.modified;
  EXPECT_FALSE(misses.has(later));
}

TEST_F(ThumbnailMissesTest, ForgetsWhenToldSoAndBeforeTheyAreTooMany) {
  misses.add(file);
  misses.clear();
  EXPECT_FALSE(misses.has(file));
  misses.add(file);
  for (std::size_t i = 1; i < ThumbnailMisses::kMost; ++i)
    misses.add({"f:" + std::to_string(i), file.original});
  EXPECT_TRUE(misses.has(file));
  misses.add({"one too many", file.original});
  EXPECT_FALSE(misses.has(file));
  EXPECT_TRUE(misses.has({"one too many", file.original}));
}

}  // namespace
}  // namespace tulo::test
