#include "service/control/ControlClient.h"

#include <gtest/gtest.h>

#include <memory>

#include "service/base/ServicePaths.h"
#include "service/control/ControlServer.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

TEST(ControlClientTest, WithoutAServiceItSaysSoInWords) {
  const TemporaryDirectory directory;
  try {
    ControlClient client(directory.file("none.sock"));
    FAIL() << "connected to nobody";
  } catch (const ServiceError& error) {
    EXPECT_NE(std::string(error.what()).find("is the account mounted?"), std::string::npos);
  }
}

TEST(ControlClientTest, AServiceThatHasGoneIsAnError) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("test.sock");
  auto server = std::make_unique<ControlServer>(
      path, [](const std::string&, const ControlServer::Emit& emit) { emit("yes"); });
  server->start();
  ControlClient client(path);
  client.ask("x", [](const std::string&) { return false; });
  server.reset();
  EXPECT_THROW(client.ask("x", [](const std::string&) { return false; }), ServiceError);
}

TEST(ControlClientTest, LinesComeUntilItHasEnough) {
  const TemporaryDirectory directory;
  const std::string path = directory.file("test.sock");
  ControlServer server(path, [](const std::string&, const ControlServer::Emit& emit) {
    for (const char* line : {"a", "b", "c"})
      emit(line);
  });
  server.start();
  std::string all;
  ControlClient(path).ask("x", [&all](const std::string& line) {
    all += line;
    return line != "b";
  });
  EXPECT_EQ(all, "ab");
}

}  // namespace
}  // namespace tulo::test
