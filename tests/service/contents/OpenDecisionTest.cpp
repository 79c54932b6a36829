#include "service/contents/OpenDecision.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <ostream>
#include <string>

namespace tulo::test {
namespace {

constexpr NodeId kFolder{20};

struct Case {
  const char* name;
  std::optional<OpenLookup> row;
  Verification verification;
  OpenStep step;
  int error = 0;
};

void PrintTo(const Case& test, std::ostream* out) {
  *out << test.name;
}

OpenLookup file(ContentState state, std::int64_t size = 5, NodeId parent = kFolder) {
  return {NodeKind::file, state, parent, kNoContent, size};
}

class OpenDecisionTest : public testing::TestWithParam<Case> {};

TEST_P(OpenDecisionTest, FollowsFromTheRowAndWhatIsKnownOfIt) {
  const OpenDecision decision = decideOpen(GetParam().row, GetParam().verification);
  EXPECT_EQ(decision.step, GetParam().step);
  EXPECT_EQ(decision.error, GetParam().error);
}

constexpr auto kDataless = ContentState::dataless;
constexpr auto kDownloaded = ContentState::downloaded;
constexpr auto kDirty = ContentState::dirty;

INSTANTIATE_TEST_SUITE_P(
    Rows, OpenDecisionTest,
    testing::Values(
        Case{"Gone", std::nullopt, Verification::done, OpenStep::refuse, ESTALE},
        Case{"GoneAndNotLookedAt", std::nullopt, Verification::none, OpenStep::refuse, ESTALE},
        Case{"Folder", OpenLookup{.kind = NodeKind::folder}, Verification::none, OpenStep::refuse,
             EISDIR},
        Case{"HereAndVerified", file(kDownloaded), Verification::done, OpenStep::open},
        Case{"HereInDoubt", file(kDownloaded), Verification::none, OpenStep::verify},
        Case{"HereAndTheHostSilent", file(kDownloaded), Verification::failed, OpenStep::fetch},
        Case{"MissingAndVerified", file(kDataless), Verification::done, OpenStep::fetch},
        Case{"MissingInDoubt", file(kDataless), Verification::none, OpenStep::verify},
        Case{"MissingAndTheHostSilent", file(kDataless), Verification::failed, OpenStep::fetch},
        Case{"EmptyAndVerified", file(kDataless, 0), Verification::done, OpenStep::open},
        Case{"EmptyInDoubt", file(kDataless, 0), Verification::none, OpenStep::verify},
        Case{"ChangedHere", file(kDirty), Verification::none, OpenStep::open},
        Case{"ChangedHereAndTheHostSilent", file(kDirty), Verification::failed, OpenStep::open},
        Case{"OutOfTheTree", file(kDownloaded, 5, kNoNode), Verification::none, OpenStep::open},
        Case{"OutOfTheTreeAndMissing", file(kDataless, 5, kNoNode), Verification::none,
             OpenStep::fetch}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace tulo::test
