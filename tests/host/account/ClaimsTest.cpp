#include "host/account/Claims.h"

#include <gmock/gmock.h>

namespace tulo::host {
namespace {

TEST(ClaimsTest, ANameIsHeldByOneForAsLongAsItsClaimLives) {
  Claims claims;
  {
    const auto claim = claims.claim("a");
    ASSERT_TRUE(claim);
    EXPECT_EQ(claim->name(), "a");
    EXPECT_FALSE(claims.claim("a"));
    EXPECT_TRUE(claims.claim("b"));
  }
  EXPECT_TRUE(claims.claim("a"));
}

TEST(ClaimsTest, AClaimThatIsHandedOnIsGivenUpOnce) {
  Claims claims;
  auto first = claims.claim("a");
  {
    const Claims::Claim second = *std::move(first);
    first.reset();
    EXPECT_FALSE(claims.claim("a"));
  }
  EXPECT_TRUE(claims.claim("a"));
}

TEST(ClaimsTest, TellsWhichNamesAreHeld) {
  Claims claims;
  const auto a = claims.claim("a");
  const auto b = claims.claim("b");
  std::set<std::string> seen;
  claims.whileTheyStay([&](const std::set<std::string>& names) { seen = names; });
  EXPECT_THAT(seen, testing::ElementsAre("a", "b"));
}

}  // namespace
}  // namespace tulo::host
