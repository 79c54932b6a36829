#include "service/mount/KernelRequests.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <future>

#include "service/mount/MountPoint.h"
#include "tests/service/support/Kernel.h"

namespace tulo::test {
namespace {

using Taken = RequestSource::Taken;

class KernelRequestsTest : public ::testing::Test {
 protected:
  static fuse_lowlevel_ops table() {
    fuse_lowlevel_ops operations = {};
    operations.statfs = [](fuse_req_t request, fuse_ino_t) { fuse_reply_err(request, EBUSY); };
    operations.readlink = [](fuse_req_t request, fuse_ino_t) { fuse_reply_err(request, EXDEV); };
    return operations;
  }

  Kernel kernel{table()};
  KernelRequests requests{kernel.session(), 2};
};

TEST_F(KernelRequestsTest, TakingDoesNotWait) {
  EXPECT_EQ(requests.take(0), Taken::nothing);
}

TEST_F(KernelRequestsTest, ARequestIsTakenAndThenHandled) {
  const Kernel::Ticket ticket = kernel.post(FUSE_STATFS, kRootNode);
  requests.await();
  EXPECT_EQ(requests.take(0), Taken::request);
  EXPECT_FALSE(kernel.isAnswered(ticket));
  requests.handle(0);
  EXPECT_EQ(kernel.await(ticket).error, EBUSY);
}

TEST_F(KernelRequestsTest, ItIsIdleWhenWhatHasComeWasHandled) {
  EXPECT_TRUE(requests.isIdle());
  const Kernel::Ticket ticket = kernel.post(FUSE_STATFS, kRootNode);
  requests.await();
  EXPECT_FALSE(requests.isIdle()) << "it waits";
  EXPECT_EQ(requests.take(0), Taken::request);
  EXPECT_FALSE(requests.isIdle()) << "it is being handled";
  requests.handle(0);
  EXPECT_TRUE(requests.isIdle());
  EXPECT_EQ(kernel.await(ticket).error, EBUSY);
}

TEST_F(KernelRequestsTest, EachSlotKeepsItsRequest) {
  const Kernel::Ticket first = kernel.post(FUSE_STATFS, kRootNode);
  EXPECT_EQ(requests.take(0), Taken::request);
  const Kernel::Ticket second = kernel.post(FUSE_READLINK, kRootNode);
  EXPECT_EQ(requests.take(1), Taken::request);
  requests.handle(1);
  requests.handle(0);
  EXPECT_EQ(kernel.await(first).error, EBUSY);
  EXPECT_EQ(kernel.await(second).error, EXDEV);
}

TEST_F(KernelRequestsTest, WhoeverAwaitsARequestCanBeWoken) {
  std::future<void> awaited = std::async(std::launch::async, [&] { requests.await(); });
  requests.wake();
  awaited.get();
  EXPECT_EQ(requests.take(0), Taken::nothing);
}

TEST_F(KernelRequestsTest, TheEndOfTheConnectionIsTheEndOfRequests) {
  kernel.hangUp();
  requests.await();
  EXPECT_EQ(requests.take(0), Taken::end);
}

TEST(KernelRequestsErrorTest, ASessionWithoutADeviceIsRefused) {
  fuse_args arguments = FUSE_ARGS_INIT(0, nullptr);
  std::string program = "test";
  fuse_opt_add_arg(&arguments, program.c_str());
  const fuse_lowlevel_ops none = {};
  fuse_session* session = fuse_session_new(&arguments, &none, sizeof none, nullptr);
  fuse_opt_free_args(&arguments);
  ASSERT_NE(session, nullptr);
  EXPECT_THROW(KernelRequests(session, 1), MountError);
  fuse_session_destroy(session);
}

}  // namespace
}  // namespace tulo::test
