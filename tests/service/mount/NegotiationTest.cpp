#include "service/mount/Negotiation.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

unsigned wanted(unsigned capable, bool writable, unsigned before = 0) {
  fuse_conn_info connection = {};
  connection.capable = capable;
  connection.want = before;
  negotiate(connection, writable);
  return connection.want;
}

constexpr unsigned kAll = ~0U;

TEST(NegotiationTest, NothingIsWantedThatTheKernelCannotDo) {
  EXPECT_EQ(wanted(0, true), 0U);
  EXPECT_EQ(wanted(FUSE_CAP_READDIRPLUS, true), unsigned{FUSE_CAP_READDIRPLUS});
}

TEST(NegotiationTest, TruncatingIsPartOfOpeningWhereSomethingCanBeChanged) {
  EXPECT_NE(wanted(kAll, true) & FUSE_CAP_ATOMIC_O_TRUNC, 0U);
  EXPECT_EQ(wanted(kAll, false) & FUSE_CAP_ATOMIC_O_TRUNC, 0U);
}

TEST(NegotiationTest, PagesAreDroppedWhenThatIsSaidAndNotWhenAnAttributeDiffers) {
  const unsigned all = wanted(kAll, true, FUSE_CAP_AUTO_INVAL_DATA);
  EXPECT_EQ(all & FUSE_CAP_AUTO_INVAL_DATA, 0U);
  EXPECT_NE(all & FUSE_CAP_EXPLICIT_INVAL_DATA, 0U);
}

TEST(NegotiationTest, NoCallIsMadeToOpenAFolder) {
  EXPECT_NE(wanted(kAll, false) & FUSE_CAP_NO_OPENDIR_SUPPORT, 0U);
}

TEST(NegotiationTest, ManyRequestsMayBeUnderWay) {
  fuse_conn_info connection = {};
  negotiate(connection, false);
  EXPECT_GT(connection.max_background, connection.congestion_threshold);
  EXPECT_GT(connection.congestion_threshold, 100U);
  EXPECT_EQ(connection.max_readahead, 1U << 20);
}

}  // namespace
}  // namespace tulo::test
