#include "host/base/HostError.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace tulo::host {
namespace {

TEST(HostErrorTest, AnErrorNumberBecomesTheKindThatTheUserCanActUpon) {
  EXPECT_EQ(systemError(ENOENT, "x").kind(), "not_found");
  EXPECT_EQ(systemError(ENOTDIR, "x").kind(), "not_found");
  EXPECT_EQ(systemError(ENOSPC, "x").kind(), "disk_full");
  EXPECT_EQ(systemError(EDQUOT, "x").kind(), "disk_full");
  EXPECT_EQ(systemError(ENAMETOOLONG, "x").kind(), "invalid_name");
  EXPECT_EQ(systemError(EILSEQ, "x").kind(), "invalid_name");
  EXPECT_EQ(systemError(EACCES, "x").kind(), "io");
}

TEST(HostErrorTest, TheMessageSaysWhatWasBeingDoneAndWhatWentWrong) {
  EXPECT_EQ(std::string(systemError(ENOENT, "opening a").what()),
            "opening a: No such file or directory");
}

TEST(HostErrorTest, ABadRequestIsOneOfItsKind) {
  EXPECT_EQ(BadRequest("why").kind(), "bad_request");
}

}  // namespace
}  // namespace tulo::host
