#include <gtest/gtest.h>

#include "index/Index.h"
#include "platform/Deployment.h"
#include "tests/support/CaseName.h"

namespace tulo {
namespace {

const std::string bundle(deployment::hostBundleIdentifier);

platform::NSFileProviderDomain domain(const std::string& identifier) {
  return {identifier, "Any"};
}

TEST(LocationTest, TheAppGroupIsTeamDotBundle) {
  EXPECT_EQ(Index::appGroup(), std::string(deployment::teamIdentifier) + "." + bundle);
}

TEST(LocationTest, TheDomainPrefixIsBundleDotAcctDot) {
  EXPECT_EQ(Index::domainPrefix(), bundle + ".acct.");
}

struct LocationCase {
  const char* title;
  std::string domain;
  std::string account;
  std::string database;
};

class DomainLocationTest : public testing::TestWithParam<LocationCase> {};

TEST_P(DomainLocationTest, GivesAccountAndDatabase) {
  EXPECT_EQ(Index::accountId(domain(GetParam().domain)), GetParam().account);
  EXPECT_EQ(Index::databaseName(domain(GetParam().domain)), GetParam().database);
}

INSTANTIATE_TEST_SUITE_P(
    Domains, DomainLocationTest,
    testing::ValuesIn<LocationCase>({
        {"Primary", bundle + ".acct.primary", "primary", "state.db"},
        {"Numbered", bundle + ".acct.42", "42", "state-42.db"},
        {"OutsideOfThePrefix", "other.domain", "primary", "state.db"},
        {"Empty", "", "primary", "state.db"},
        {"ThePrefixAlone", bundle + ".acct.", "", "state-.db"},
        {"ThePrefixCutShort", bundle + ".acct", "primary", "state.db"},
        {"CapitalPrimary", bundle + ".acct.Primary", "Primary", "state-Primary.db"},
        {"PrimaryWithMore", bundle + ".acct.primary2", "primary2", "state-primary2.db"},
        {"AnotherCase", bundle + ".ACCT.42", "primary", "state.db"},
        {"ThePrefixTwice", bundle + ".acct." + bundle + ".acct.x", bundle + ".acct.x",
         "state-" + bundle + ".acct.x.db"},
        {"ThePrefixInTheMiddle", "x" + bundle + ".acct.42", "primary", "state.db"},
        {"NothingIsSanitised", bundle + ".acct.../a b?#%41", "../a b?#%41", "state-../a b?#%41.db"},
        // The mark belongs to the dot, which makes it another character.
        {"MarkOnTheLastDot", bundle + ".acct.\u0301x", "primary", "state.db"},
    }),
    test::CaseName());

}  // namespace
}  // namespace tulo
