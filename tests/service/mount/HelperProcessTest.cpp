#include "service/mount/HelperProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace tulo::test {
namespace {

TEST(HelperProcessTest, WhatTheWorkReturnsIsTheStatus) {
  HelperProcess helper([] { return 7; });
  EXPECT_EQ(helper.wait(seconds(30)), 7);
}

TEST(HelperProcessTest, WhatIsNotDoneInTimeHasNoStatusAndIsEnded) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const FileDescriptor read(ends[0]);
  FileDescriptor write(ends[1]);
  // The standard descriptors stay open, so the child keeps the pipe open as long as it lives.
  const FileDescriptor saved(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  ::dup2(write.get(), STDIN_FILENO);
  {
    HelperProcess helper([] {
      for (;;)
        ::pause();
      return 0;
    });
    if (saved) ::dup2(saved.get(), STDIN_FILENO);
    write.reset();
    EXPECT_EQ(helper.wait(milliseconds(20)), std::nullopt);
  }
  char byte = 0;
  EXPECT_EQ(::read(read.get(), &byte, 1), 0) << "the child is gone";
}

TEST(HelperProcessTest, NothingOfTheServiceIsOpenInIt) {
  const FileDescriptor own(::open("/", O_RDONLY));
  HelperProcess helper(
      [number = own.get()] { return ::fcntl(number, F_GETFD) < 0 && errno == EBADF ? 0 : 1; });
  EXPECT_EQ(helper.wait(seconds(30)), 0);
}

TEST(HelperProcessTest, WhoDiesOfASignalHasNoStatus) {
  HelperProcess helper([] {
    ::raise(SIGKILL);
    return 0;
  });
  EXPECT_EQ(helper.wait(seconds(30)), std::nullopt);
}

}  // namespace
}  // namespace tulo::test
