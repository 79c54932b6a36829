#include "host/server/Client.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>

#include "host/base/HostError.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/SocketAddress.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

class ClientTest : public testing::Test {
 protected:
  // A host that answers one connection in its own way.
  void serve(const std::function<void(int)>& answer) {
    listener_.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(SocketAddress::of(directory_.file("fp.sock"))->bind(listener_.get()), 0);
    ASSERT_EQ(::listen(listener_.get(), 1), 0);
    host_ = std::thread([this, answer] {
      const FileDescriptor connection(::accept(listener_.get(), nullptr, nullptr));
      char byte = 0;
      while (byte != '\n' && ::recv(connection.get(), &byte, 1, 0) == 1)
        request_ += byte;
      answer(connection.get());
    });
  }
  void TearDown() override {
    if (host_.joinable()) host_.join();
  }
  std::string refusal() {
    try {
      askHost(directory_.path(), "{}");
      return {};
    } catch (const StartError& error) {
      return error.what();
    }
  }

  const test::TemporaryDirectory directory_;
  FileDescriptor listener_;
  std::thread host_;
  std::string request_;
};

TEST_F(ClientTest, SendsALineAndGivesTheReplyWithoutItsLineFeed) {
  serve([](int connection) {
    static_cast<void>(!::write(connection, "{\"ok\"", 5));
    static_cast<void>(!::write(connection, ":true}\n", 7));
  });
  EXPECT_EQ(askHost(directory_.path(), "{\"op\":\"status\"}"), "{\"ok\":true}");
  host_.join();
  EXPECT_EQ(request_, "{\"op\":\"status\"}\n");
}

TEST_F(ClientTest, WithoutAHostItSaysWhereItLooked) {
  EXPECT_EQ(refusal(),
            "no host answers at " + directory_.file("fp.sock") + ": No such file or directory");
}

TEST_F(ClientTest, AHostThatHangsUpGivesNoReply) {
  serve([](int) {});
  EXPECT_EQ(refusal(), "the host at " + directory_.file("fp.sock") + " gives no reply");
}

TEST_F(ClientTest, APathThatNoSocketCanHaveIsNamed) {
  EXPECT_THROW(askHost("/" + std::string(200, 'x'), "{}"), StartError);
}

}  // namespace
}  // namespace tulo::host
