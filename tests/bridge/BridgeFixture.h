// A container and what an exchange throws, for the tests of this folder.
#pragma once

#include <gmock/gmock.h>

#include "bridge/HostBridge.h"
#include "bridge/HostBridgeError.h"
#include "platform/FileManager.h"
#include "tests/support/Container.h"
#include "tests/support/FakeHost.h"
#include "tests/support/LogRecorder.h"

namespace tulo::test {

inline constexpr const char* noReply = "failed(\"no reply from host app\")";

// What the call throws, in one line; "nothing" if it returns.
template <typename Call>
std::string thrownBy(const Call& call) {
  try {
    call();
  } catch (const HostBridgeError& error) {
    return error.description();
  } catch (const platform::FileManagerError& error) {
    return std::string("file manager: ") + error.what();
  } catch (const platform::JSONSerializationError&) {
    return "serializer";
  }
  return "nothing";
}

// The request as an object. Fails the test unless it is one.
inline platform::JSONObject decoded(const std::string& request) {
  const auto object = platform::JSONSerialization::object(request);
  EXPECT_TRUE(object) << request;
  return object.value_or(platform::JSONObject{});
}

class BridgeFixture : public testing::Test {
 protected:
  // The bridge never logs, whatever happens.
  void TearDown() override { EXPECT_THAT(log_.lines(), testing::IsEmpty()); }

  Container container_;
  LogRecorder log_;
};

}  // namespace tulo::test
