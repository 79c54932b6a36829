#include "service/mount/Interrupts.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class InterruptsTest : public MountFixture {
 protected:
  Kernel::Ticket beginOpen(NodeId node) {
    return kernel().send(FUSE_OPEN, node, bytesOf(fuse_open_in{O_RDONLY, 0}));
  }
};

TEST_F(InterruptsTest, WhoeverGivesUpOpeningIsAnsweredAndTheDownloadGoesOn) {
  extension->file("f", "name", "bytes");
  list();
  extension->holdFetches();
  const Kernel::Ticket open = beginOpen(idOf("f"));
  EXPECT_FALSE(kernel().isAnswered(open));
  kernel().interrupt(open);
  EXPECT_EQ(kernel().await(open).error, EINTR);
  extension->releaseFetches();
  EXPECT_TRUE(eventually([&] { return row(idOf("f"))->state == ContentState::downloaded; }));
}

TEST_F(InterruptsTest, OthersWhoWaitForTheSameFileGoOnWaiting) {
  extension->file("f", "name", "bytes");
  list();
  extension->holdFetches();
  const Kernel::Ticket impatient = beginOpen(idOf("f"));
  const Kernel::Ticket patientOne = beginOpen(idOf("f"));
  kernel().interrupt(impatient);
  EXPECT_EQ(kernel().await(impatient).error, EINTR);
  EXPECT_FALSE(kernel().isAnswered(patientOne));
  extension->releaseFetches();
  const KernelReply reply = kernel().await(patientOne);
  EXPECT_EQ(reply.error, 0);
  kernel().release(idOf("f"), reply.as<fuse_open_out>().fh);
}

TEST_F(InterruptsTest, WhoeverGivesUpWaitingForTheHostLeavesTheChangeOnItsWay) {
  mountWaiting();
  const Kernel::Ticket make =
      kernel().send(FUSE_MKDIR, kRootNode, bytesOf(fuse_mkdir_in{0755, 0}) + nameBytes("Folder"));
  EXPECT_FALSE(kernel().isAnswered(make));
  kernel().interrupt(make);
  EXPECT_EQ(kernel().await(make).error, EINTR);
  push();
  EXPECT_EQ(sentNames(), std::vector<std::string>{"Folder"});
}

}  // namespace
}  // namespace tulo::test
