// One extension of one account, with its container, index and log.
#pragma once

#include <gmock/gmock.h>

#include "platform/JSON.h"
#include "tests/apple/sdk/StandIns.h"
#include "tests/support/Container.h"
#include "tests/support/FakeHost.h"
#include "tests/support/IndexBuilder.h"
#include "tests/support/LogRecorder.h"

#import "tests/apple/system/SystemPlayer.h"

namespace tulo::test {

inline const std::string root = "NSFileProviderRootContainerItemIdentifier";
inline const std::string noSuchItem = "NSFileProviderErrorDomain -1005 with 0 entries";
inline const std::string serverUnreachable = "NSFileProviderErrorDomain -1004 with 0 entries";

// What a placeholder says, but for its identifier.
inline const std::string likeTheRoot =
    " in " + root +
    " named Tulo Hub type public.folder may 3 size none modified none uploaded version 0 / 0-";

class SystemFixture : public testing::Test {
 protected:
  SystemFixture() : extension_(extensionFor("42")) { log_.clear(); }

  ExtensionObject* extension() const { return extension_.get(); }
  IndexBuilder builder() const { return IndexBuilder(container_.file("state-42.db")); }

  // The only request so far.
  static platform::JSONObject requestTo(const FakeHost& host) {
    const auto requests = host.requests();
    EXPECT_EQ(requests.size(), 1U);
    if (requests.size() != 1) return {};
    return platform::JSONSerialization::object(requests.front()).value_or(platform::JSONObject{});
  }

  static std::string reply(const platform::JSONObject& object) {
    return platform::JSONSerialization::data(object);
  }

  const apple::AutoreleasePool pool_;
  Container container_;
  LogRecorder log_;
  Retained<ExtensionObject*> extension_;
};

}  // namespace tulo::test
