#include <gtest/gtest.h>

#include "platform/Log.h"

namespace tulo::platform {
namespace {

TEST(LogFormatTest, PutsArgumentsInPlaceInOrder) {
  EXPECT_EQ(Log::formatted("init for domain %{public}@ (index %{public}@)", {"d", "i"}),
            "init for domain d (index i)");
  const std::string text = "text";
  EXPECT_EQ(Log::formatted("%{public}s: %d of %d", {text, 3, std::int64_t{-4000000000}}),
            "text: 3 of -4000000000");
}

TEST(LogFormatTest, LeavesPlaceholdersWithoutArgumentsAndDropsArgumentsWithout) {
  EXPECT_EQ(Log::formatted("%{public}@ and %{public}@", {"one"}), "one and %{public}@");
  EXPECT_EQ(Log::formatted("none", {"one"}), "none");
  EXPECT_EQ(Log::formatted("", {}), "");
}

TEST(LogFormatTest, ReadsPerCentSignsThatAreNoPlaceholders) {
  EXPECT_EQ(Log::formatted("100%% of %d", {7}), "100% of 7");
  EXPECT_EQ(Log::formatted("50% x %{public %", {"a"}), "50% x %{public %");
  EXPECT_EQ(Log::formatted("%", {"a"}), "%");
}

TEST(LogFormatTest, DoesNotReadPlaceholdersInArguments) {
  EXPECT_EQ(Log::formatted("%{public}@ %{public}@", {"%{public}@ %d", "b"}), "%{public}@ %d b");
}

}  // namespace
}  // namespace tulo::platform
