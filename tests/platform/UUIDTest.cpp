#include "platform/UUID.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace tulo::platform {
namespace {

TEST(UUIDTest, IsARandomOneInItsCanonicalUpperCaseForm) {
  const std::regex canonical("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  for (int count = 0; count < 100; ++count) {
    const std::string uuid = randomUUIDString();
    EXPECT_TRUE(std::regex_match(uuid, canonical)) << uuid;
  }
}

TEST(UUIDTest, IsADifferentOneEachTime) {
  std::set<std::string> seen;
  for (int count = 0; count < 1000; ++count)
    seen.insert(randomUUIDString());
  EXPECT_EQ(seen.size(), 1000U);
}

}  // namespace
}  // namespace tulo::platform
