#include "service/mount/MountGuard.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <stdexcept>

#include "service/errors/ContentError.h"
#include "sqlite/DatabaseError.h"
#include "tests/service/support/Kernel.h"

namespace tulo::test {
namespace {

// What a request is told that is handled so.
int answerTo(std::function<void()> handling) {
  fuse_lowlevel_ops operations = {};
  operations.statfs = [](fuse_req_t request, fuse_ino_t) {
    guarded(request, [&] {
      (*static_cast<std::function<void()>*>(fuse_req_userdata(request)))();
      fuse_reply_err(request, EBUSY);
    });
  };
  return Kernel(operations, &handling).ask(FUSE_STATFS, kRootNode).error;
}

template <typename Error>
int answerToThrown(const Error& error) {
  return answerTo([&] { throw Error(error); });
}

TEST(MountGuardTest, AFullDiskIsToldApart) {
  EXPECT_EQ(answerToThrown(ContentError(ENOSPC, "full")), ENOSPC);
  EXPECT_EQ(answerToThrown(ContentError(EDQUOT, "full")), EDQUOT);
  EXPECT_EQ(answerToThrown(sqlite::DatabaseError(SQLITE_FULL, "full")), ENOSPC);
}

TEST(MountGuardTest, AnythingElseIsAnInputOutputError) {
  EXPECT_EQ(answerToThrown(ContentError(ENOENT, "gone")), EIO);
  EXPECT_EQ(answerToThrown(sqlite::DatabaseError(SQLITE_IOERR, "broken")), EIO);
  EXPECT_EQ(answerToThrown(std::runtime_error("anything")), EIO);
}

TEST(MountGuardTest, WhatDoesNotThrowAnswersByItself) {
  EXPECT_EQ(answerTo([] {}), EBUSY);
}

}  // namespace
}  // namespace tulo::test
