#include "platform/linux/DescriptorLimit.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace tulo::test {
namespace {

TEST(DescriptorLimitTest, IsWhatTheSystemAllowsAtMost) {
  rlimit before = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit few{256, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  raiseDescriptorLimit();
  rlimit now = {};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &now), 0);
  EXPECT_EQ(now.rlim_cur, before.rlim_max);
  EXPECT_EQ(now.rlim_max, before.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace
}  // namespace tulo::test
