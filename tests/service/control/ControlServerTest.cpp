// The server and real clients over a real socket.

#include "service/control/ControlServer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <memory>
#include <thread>

#include "service/base/ServicePaths.h"
#include "service/control/ControlClient.h"
#include "service/control/ControlSocket.h"
#include "tests/support/Connection.h"
#include "tests/support/Eventually.h"
#include "tests/support/Gate.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class ControlServerTest : public ::testing::Test {
 protected:
  void serve(ControlServer::Handler handler) {
    server = std::make_unique<ControlServer>(path, std::move(handler));
    server->start();
  }

  // Says back what it is asked.
  void serveEcho() {
    serve([](const std::string& request, const ControlServer::Emit& emit) { emit(request); });
  }

  static std::string asked(ControlClient& client, const std::string& request) {
    std::string answer;
    client.ask(request, [&answer](const std::string& line) {
      answer = line;
      return false;
    });
    return answer;
  }

  TemporaryDirectory directory;
  std::string path = directory.file("run/test.sock");
  std::unique_ptr<ControlServer> server;
};

TEST_F(ControlServerTest, ARequestIsAnsweredAndThenTheNext) {
  serveEcho();
  ControlClient client(path);
  EXPECT_EQ(asked(client, "one"), "one");
  EXPECT_EQ(asked(client, "two"), "two");
}

TEST_F(ControlServerTest, TheSocketIsTheUsersOwn) {
  serveEcho();
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  ASSERT_EQ(::stat(directory.file("run").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(ControlServerTest, AnAnswerMayHaveManyLines) {
  serve([](const std::string&, const ControlServer::Emit& emit) {
    for (const char* line : {"a", "b", "c"})
      emit(line);
  });
  ControlClient client(path);
  std::string all;
  client.ask("x", [&all](const std::string& line) {
    all += line;
    return line != "c";
  });
  EXPECT_EQ(all, "abc");
}

TEST_F(ControlServerTest, TwoClientsDoNotWaitForEachOther) {
  Gate gate;
  serve([&gate](const std::string& request, const ControlServer::Emit& emit) {
    if (request == "slow") gate.wait();
    emit(request);
  });
  ControlClient slow(path);
  std::thread waiting([&slow] { EXPECT_EQ(asked(slow, "slow"), "slow"); });
  ControlClient quick(path);
  EXPECT_EQ(asked(quick, "quick"), "quick");
  gate.open();
  waiting.join();
}

TEST_F(ControlServerTest, WhoHangsUpIsNoticedByWhoSends) {
  std::atomic<bool> noticed = false;
  serve([&noticed](const std::string&, const ControlServer::Emit& emit) {
    while (emit("still here"))
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    noticed = true;
  });
  {
    const FileDescriptor socket = connected(path);
    EXPECT_TRUE(control::sendAll(socket.get(), "x\n"));
  }
  EXPECT_TRUE(eventually([&] { return noticed.load(); }));
  server->stop();
}

TEST_F(ControlServerTest, GarbageReachesTheHandlerOnlyInWholeLines) {
  std::atomic<int> requests = 0;
  serve([&requests](const std::string& request, const ControlServer::Emit& emit) {
    ++requests;
    emit(std::to_string(request.size()));
  });
  {
    const FileDescriptor half = connected(path);
    EXPECT_TRUE(control::sendAll(half.get(), "half a line"));
  }
  ControlClient client(path);
  EXPECT_EQ(asked(client, std::string("\0\xff\x01", 3)), "3");
  EXPECT_EQ(requests, 1);
}

TEST_F(ControlServerTest, AnExceptionEndsOneConnectionOnly) {
  serve([](const std::string& request, const ControlServer::Emit& emit) {
    if (request == "bad") throw std::runtime_error("no");
    emit(request);
  });
  ControlClient bad(path);
  EXPECT_EQ(asked(bad, "bad"), "");
  ControlClient good(path);
  EXPECT_EQ(asked(good, "good"), "good");
}

TEST_F(ControlServerTest, ManyClientsAfterOneAnotherAreAllAnswered) {
  serveEcho();
  for (int i = 0; i < 200; ++i) {
    ControlClient client(path);
    ASSERT_EQ(asked(client, std::to_string(i)), std::to_string(i));
  }
}

TEST_F(ControlServerTest, StoppingEndsTheConnectionsThatAreIdle) {
  serveEcho();
  ControlClient client(path);
  EXPECT_EQ(asked(client, "x"), "x");
  server->stop();
  server.reset();
  EXPECT_NE(::access(path.c_str(), F_OK), 0);
}

TEST_F(ControlServerTest, ASocketThatSomebodyListensOnIsNotTakenOver) {
  serveEcho();
  EXPECT_THROW(ControlServer(path, [](const auto&, const auto&) {}), ServiceError);
  ControlClient client(path);
  EXPECT_EQ(asked(client, "still here"), "still here");
}

TEST_F(ControlServerTest, ASocketThatNobodyListensOnIsReplaced) {
  writeFile(directory.file("left"), "");
  path = directory.file("left");
  serveEcho();
  ControlClient client(path);
  EXPECT_EQ(asked(client, "x"), "x");
}

}  // namespace
}  // namespace tulo::test
