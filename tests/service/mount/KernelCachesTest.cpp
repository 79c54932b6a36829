#include "service/mount/KernelCaches.h"

#include <gtest/gtest.h>

#include "tests/service/support/Kernel.h"

namespace tulo::test {
namespace {

class KernelCachesTest : public ::testing::Test {
 protected:
  KernelNotice delivered(const Invalidation& invalidation) {
    KernelCaches(kernel.session()).deliver(invalidation);
    const std::vector<KernelNotice> notices = kernel.notices();
    EXPECT_EQ(notices.size(), 1U);
    return notices.empty() ? KernelNotice{} : notices.front();
  }

  template <typename Structure>
  static Structure partOf(const KernelNotice& notice) {
    return KernelReply{0, notice.body}.as<Structure>();
  }

  static std::string nameIn(const KernelNotice& notice, std::size_t offset, std::size_t length) {
    return notice.body.substr(offset, length);
  }

  Kernel kernel{fuse_lowlevel_ops{}};
};

TEST_F(KernelCachesTest, ANameThatMeansSomethingElseIsDropped) {
  const KernelNotice notice = delivered(entryChanged(NodeId(20), "name"));
  EXPECT_EQ(notice.code, FUSE_NOTIFY_INVAL_ENTRY);
  const auto part = partOf<fuse_notify_inval_entry_out>(notice);
  EXPECT_EQ(part.parent, 20U);
  EXPECT_EQ(nameIn(notice, sizeof part, part.namelen), "name");
}

TEST_F(KernelCachesTest, ANameThatIsGoneIsDroppedWithItsNode) {
  const KernelNotice notice = delivered(entryDeleted(NodeId(20), NodeId(21), "name"));
  EXPECT_EQ(notice.code, FUSE_NOTIFY_DELETE);
  const auto part = partOf<fuse_notify_delete_out>(notice);
  EXPECT_EQ(part.parent, 20U);
  EXPECT_EQ(part.child, 21U);
  EXPECT_EQ(nameIn(notice, sizeof part, part.namelen), "name");
}

TEST_F(KernelCachesTest, PagesStayWhenOnlyAttributesChanged) {
  const KernelNotice notice = delivered(attributesChanged(NodeId(21)));
  EXPECT_EQ(notice.code, FUSE_NOTIFY_INVAL_INODE);
  const auto part = partOf<fuse_notify_inval_inode_out>(notice);
  EXPECT_EQ(part.ino, 21U);
  EXPECT_LT(part.off, 0);
}

TEST_F(KernelCachesTest, AllPagesGoWhenDataChanged) {
  const KernelNotice notice = delivered(dataChanged(NodeId(21)));
  EXPECT_EQ(notice.code, FUSE_NOTIFY_INVAL_INODE);
  const auto part = partOf<fuse_notify_inval_inode_out>(notice);
  EXPECT_EQ(part.ino, 21U);
  EXPECT_EQ(part.off, 0);
  EXPECT_EQ(part.len, 0);
}

}  // namespace
}  // namespace tulo::test
