#include "service/mount/Handlers.h"

#include <gtest/gtest.h>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class HandlersTest : public MountFixture {};

TEST_F(HandlersTest, FilesAreEmptiedByOpeningThemWhereTheyCanBeWritten) {
  mountWritable();
  EXPECT_TRUE(handlers().writable);
  EXPECT_NE(kernel().agreed().flags & FUSE_ATOMIC_O_TRUNC, 0U);
}

TEST_F(HandlersTest, WithoutEditsNothingIsWritable) {
  mountReadOnly();
  EXPECT_FALSE(handlers().writable);
}

TEST_F(HandlersTest, TheKernelDropsNoPagesByItself) {
  EXPECT_EQ(kernel().agreed().flags & FUSE_AUTO_INVAL_DATA, 0U);
  EXPECT_NE(kernel().agreed().flags & FUSE_EXPLICIT_INVAL_DATA, 0U);
}

}  // namespace
}  // namespace tulo::test
