#include "host/server/ListeningSocket.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "host/base/HostError.h"
#include "tests/support/Connection.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class ListeningSocketTest : public testing::Test {
 protected:
  FileDescriptor connect() const { return test::connected(path_); }

  const test::TemporaryDirectory directory_;
  const Container container_{directory_.file("container")};
  const std::string path_ = container_.pathOf("fp.sock");
  const HostLog log_{false};
  ListeningSocket socket_{container_, log_};
};

TEST_F(ListeningSocketTest, IsForItsUserAlone) {
  socket_.open();
  struct stat info;
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_TRUE(S_ISSOCK(info.st_mode));
  EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(ListeningSocketTest, GivesOneConnectionAfterTheOther) {
  socket_.open();
  ASSERT_TRUE(socket_.accept()) << "no descriptors are missing";
  EXPECT_FALSE(*socket_.accept()) << "and nobody has come";
  const FileDescriptor one = connect();
  const FileDescriptor two = connect();
  EXPECT_TRUE(*socket_.accept());
  EXPECT_TRUE(*socket_.accept());
  EXPECT_FALSE(*socket_.accept());
}

TEST_F(ListeningSocketTest, WithoutItsNameWhoIsConnectedStaysSo) {
  socket_.open();
  const FileDescriptor before = connect();
  socket_.remove();
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_FALSE(connect());
  EXPECT_TRUE(*socket_.accept());
}

TEST_F(ListeningSocketTest, OneThatADeadHostHasLeftIsReplaced) {
  socket_.open();
  socket_.close();
  ASSERT_TRUE(fs::exists(path_));
  ListeningSocket next(container_, log_);
  next.open();
  EXPECT_TRUE(connect());
}

TEST_F(ListeningSocketTest, AFileInItsPlaceIsLeftAlone) {
  test::writeFile(path_, "precious");
  EXPECT_THROW(socket_.open(), StartError);
  EXPECT_EQ(test::readFile(path_), "precious");
}

TEST_F(ListeningSocketTest, APathThatIsTooLongIsExplained) {
  const Container far(directory_.file(std::string(120, 'c')));
  try {
    ListeningSocket(far, log_).open();
    FAIL() << "opened";
  } catch (const StartError& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("more than 103"));
  }
}

}  // namespace
}  // namespace tulo::host
