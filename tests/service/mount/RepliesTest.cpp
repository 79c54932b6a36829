#include "service/mount/Replies.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>

#include "tests/service/support/Kernel.h"

namespace tulo::test {
namespace {

KernelReply answerWith(std::function<void(fuse_req_t)> reply) {
  fuse_lowlevel_ops operations = {};
  operations.statfs = [](fuse_req_t request, fuse_ino_t) {
    (*static_cast<std::function<void(fuse_req_t)>*>(fuse_req_userdata(request)))(request);
  };
  return Kernel(operations, &reply).ask(FUSE_STATFS, kRootNode);
}

KernelReply sized(std::string_view value, std::size_t room) {
  return answerWith([&](fuse_req_t request) { replySized(request, value, room); });
}

TEST(RepliesTest, ANegativeCountIsAnErrno) {
  EXPECT_EQ(answerWith([](fuse_req_t request) { replyWritten(request, -ENOSPC); }).error, ENOSPC);
  EXPECT_EQ(answerWith([](fuse_req_t request) { replyRead(request, "abc", -EIO); }).error, EIO);
}

TEST(RepliesTest, ACountIsHowMuchWasWrittenOrRead) {
  const KernelReply written = answerWith([](fuse_req_t request) { replyWritten(request, 17); });
  EXPECT_EQ(written.error, 0);
  EXPECT_EQ(written.as<fuse_write_out>().size, 17U);
  EXPECT_EQ(answerWith([](fuse_req_t request) { replyRead(request, "abc", 2); }).body, "ab");
  EXPECT_EQ(answerWith([](fuse_req_t request) { replyRead(request, "abc", 0); }).body, "");
}

TEST(RepliesTest, WhoHasNoRoomIsToldHowMuchItTakes) {
  EXPECT_EQ(sized("value", 0).as<fuse_getxattr_out>().size, 5U);
}

TEST(RepliesTest, AValueGoesIntoTheRoomOrNotAtAll) {
  EXPECT_EQ(sized("value", 5).body, "value");
  EXPECT_EQ(sized("value", 100).body, "value");
  EXPECT_EQ(sized("value", 4).error, ERANGE);
  EXPECT_EQ(sized("", 4).error, 0);
}

TEST(RepliesTest, ANameOf255BytesIsNotTooLong) {
  const auto answer = [](std::size_t length) {
    return answerWith([length](fuse_req_t request) {
             if (!refuseLongName(request, std::string(length, 'n').c_str())) {
               fuse_reply_err(request, EBUSY);
             }
           })
        .error;
  };
  EXPECT_EQ(answer(255), EBUSY);
  EXPECT_EQ(answer(256), ENAMETOOLONG);
}

}  // namespace
}  // namespace tulo::test
