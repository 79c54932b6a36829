#include "service/mount/Operations.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class OperationsTest : public MountFixture {};

TEST_F(OperationsTest, AFolderNeedsNotBeOpened) {
  EXPECT_EQ(kernel().ask(FUSE_OPENDIR, kRootNode, bytesOf(fuse_open_in{})).error, ENOSYS);
}

TEST_F(OperationsTest, AFileHasOneName) {
  const NodeId file = makeFile("name", "x");
  EXPECT_EQ(
      kernel()
          .ask(FUSE_LINK, kRootNode, bytesOf(fuse_link_in{file.number()}) + nameBytes("other"))
          .error,
      EPERM);
}

TEST_F(OperationsTest, ExtendedAttributesCannotBeSet) {
  EXPECT_EQ(
      kernel().ask(FUSE_REMOVEXATTR, makeFile("name", "x"), nameBytes("user.tulo.state")).error,
      ENOSYS);
}

TEST_F(OperationsTest, TheFolderIsTheOneThatTheRequestNames) {
  const NodeId folder = makeFolder("Folder");
  const NodeId inside = makeFile("name", "x", folder);
  const NodeId outside = makeFile("name", "y");
  EXPECT_EQ(kernel().lookup(folder, "name").as<fuse_entry_out>().nodeid, inside.number());
  EXPECT_EQ(kernel().lookup(kRootNode, "name").as<fuse_entry_out>().nodeid, outside.number());
}

}  // namespace
}  // namespace tulo::test
