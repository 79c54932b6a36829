#include "service/listing/LookUps.h"

#include <cerrno>
#include <future>
#include <string>

#include "tests/service/support/EngineFixture.h"

namespace tulo::test {
namespace {

class LookUpsTest : public EngineFixture {
 protected:
  void addFiles(int count) {
    for (int i = 0; i < count; ++i) {
      const std::string number = std::to_string(i);
      extension->file("i:" + number, number, "hello");
    }
    ASSERT_EQ(refresh(), 0);
    commit();
  }

  int verify(const std::string& identifier) {
    std::promise<int> done;
    engine->sync().verifyFile(*node(identifier), [&](int error) { done.set_value(error); });
    return done.get_future().get();
  }

  std::uint64_t lookUps() { return engine->sync().statistics().lookUps; }
};

TEST_F(LookUpsTest, AFileInALargeFolderIsLookedUpAlone) {
  addFiles(256);
  const std::size_t listings = extension->listingCount();
  EXPECT_EQ(verify("i:7"), 0);
  EXPECT_EQ(lookUps(), 1U);
  EXPECT_EQ(extension->listingCount(), listings);
}

TEST_F(LookUpsTest, ASmallFolderIsListedAgain) {
  addFiles(255);
  const std::size_t listings = extension->listingCount();
  EXPECT_EQ(verify("i:7"), 0);
  EXPECT_EQ(lookUps(), 0U);
  EXPECT_EQ(extension->listingCount(), listings + 1);
}

TEST_F(LookUpsTest, WhatIsDifferentHasTheFolderListed) {
  addFiles(256);
  extension->edit("i:7", "good-bye");
  EXPECT_EQ(verify("i:7"), 0);
  EXPECT_EQ(node("i:7")->size, 8);
  extension->remove("i:8");
  commit();
  EXPECT_EQ(verify("i:8"), 0);
  EXPECT_EQ(names().size(), 255U);
  EXPECT_EQ(lookUps(), 2U);
}

TEST_F(LookUpsTest, OnceItEndsItLooksUpNothing) {
  addFiles(256);
  const Node file = *node("i:7");
  engine->sync().stop();
  int answer = 0;
  engine->sync().verifyFile(file, [&](int error) { answer = error; });
  EXPECT_EQ(answer, EINTR);
  EXPECT_EQ(lookUps(), 0U);
}

}  // namespace
}  // namespace tulo::test
