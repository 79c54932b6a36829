#include "service/mount/Passthrough.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class PassthroughTest : public MountFixture {};

TEST_F(PassthroughTest, NothingIsWantedOfAKernelThatCannotDoIt) {
  fuse_conn_info connection = {};
  Passthrough().negotiate(connection);
  EXPECT_EQ(connection.want, 0U);
}

// This kernel does not offer it, so every byte goes through the service.
TEST_F(PassthroughTest, WithoutItFilesAreReadThroughTheService) {
  const std::string bytes(300 * 1024, 'x');
  const NodeId file = downloaded("f", "name", bytes);
  mountReadOnly();
  const auto answer = kernel().open(file, O_RDONLY).as<fuse_open_out>();
  EXPECT_EQ(answer.padding, 0U) << "where a backing file would be named";
  EXPECT_EQ(kernel().read(answer.fh, 4096, 200 * 1024).body.size(), 4096U);
  EXPECT_EQ(kernel().release(file, answer.fh).error, 0);
}

}  // namespace
}  // namespace tulo::test
