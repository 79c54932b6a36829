#include "service/EngineRooms.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/service/support/ScriptedExtension.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

// Ends the work of the rooms, as the engine does.
struct EndingRooms : EngineRooms {
  using EngineRooms::EngineRooms;
  ~EndingRooms() {
    contents->stop();
    files.stop();
    uploader->stop();
    sync.stop();
    notifier.stop();
    extension->invalidate();
  }
};

class EngineRoomsTest : public ::testing::Test {
 protected:
  EngineRoomsTest() {
    options.domain = "test";
    options.stateDirectory = directory.file("state");
    options.source = {directory.path(), "state.db"};
    options.readWrite = true;
    std::filesystem::create_directory(options.stateDirectory);
  }

  EndingRooms made() {
    return EndingRooms(options, [this](const platform::DomainPointer& domain) {
      domainGiven = domain->identifier();
      return std::make_shared<ScriptedExtension>(directory.path());
    });
  }

  bool isHostPresent() { return made().uploader->statistics().present; }

  TemporaryDirectory directory;
  EngineOptions options;
  std::string domainGiven;
};

TEST_F(EngineRoomsTest, TheExtensionIsMadeForTheDomain) {
  made();
  EXPECT_EQ(domainGiven, "test");
}

TEST_F(EngineRoomsTest, TheHostIsThereAsLongAsItsSocketIs) {
  EXPECT_FALSE(isHostPresent());
  writeFile(directory.file("fp.sock"), "");
  EXPECT_TRUE(isHostPresent());
}

TEST_F(EngineRoomsTest, AnotherAccountsHostIsNone) {
  writeFile(directory.file("fp.sock"), "");
  options.sameAccount = [] { return false; };
  EXPECT_FALSE(isHostPresent());
}

TEST_F(EngineRoomsTest, WithoutAContainerTheProviderItselfIsAsked) {
  options.source = {};
  EXPECT_TRUE(isHostPresent());
}

}  // namespace
}  // namespace tulo::test
