// The system's manager, which a test can only replace on Linux.
#include "platform/linux/SystemSide.h"

#include "platform/linux/LogSink.h"

#include <gmock/gmock.h>

#include <csignal>

#include "tests/extension/ExtensionFixture.h"

namespace tulo::test {
namespace {

class PlainManager : public platform::NSFileProviderManager {};

class ManagerTest : public testing::Test {
 protected:
  ~ManagerTest() override { platform::setManagerSource(nullptr); }
};

TEST_F(ManagerTest, IsAskedForOnceAndKeptAsLongAsTheExtension) {
  std::vector<std::string> asked;
  std::weak_ptr<platform::NSFileProviderManager> manager;
  platform::setManagerSource([&](const platform::DomainPointer& domain) {
    asked.push_back(domain->identifier());
    auto made = std::make_shared<PlainManager>();
    manager = made;
    return made;
  });
  const Container container;
  auto extension = extensionFor("any.domain");
  const ItemCalls calls;
  extension->item("i:U", {}, calls.callback());
  EXPECT_THAT(asked, testing::ElementsAre("any.domain"));
  EXPECT_FALSE(manager.expired());
  extension.reset();
  EXPECT_TRUE(manager.expired());
}

TEST(ManagerDeathTest, NoManagerStopsTheProcessWithoutALogLine) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // Only what the extension itself says comes to standard error; its log would end the process in
  // another way.
  EXPECT_EXIT(
      {
        platform::setManagerSource([](const platform::DomainPointer&) { return nullptr; });
        platform::setLogSink([](const platform::LogRecord&) { std::_Exit(1); });
        extensionFor("any.domain");
      },
      testing::KilledBySignal(SIGABRT), "any\\.domain");
}

}  // namespace
}  // namespace tulo::test
