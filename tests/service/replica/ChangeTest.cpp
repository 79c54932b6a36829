#include "service/replica/Change.h"

#include <gtest/gtest.h>

#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

using Phase = Change::Phase;

const Base kBase{{"root", "a.txt"}, "v1"};

Change changed() {
  return {NodeId(20), 1, kBase, at(100)};
}

TEST(ChangeTest, ANewChangeWaits) {
  const Change change = changed();
  EXPECT_EQ(change.phase(), Phase::waiting);
  EXPECT_EQ(change.standing.due(), at(100));
  EXPECT_EQ(change.standing.attempts(), 0);
  EXPECT_TRUE(change.base().isPlaced());
  EXPECT_FALSE(change.isDeleted());
  EXPECT_FALSE(change.hasContents());
}

TEST(ChangeTest, ARequestIsOpenUntilItIsAnsweredOrHadNoEffect) {
  Change change = changed();
  change.request.made(ContentId(7), {"f", "b.txt"});
  EXPECT_EQ(change.phase(), Phase::sent);
  EXPECT_EQ(change.request.contents(), ContentId(7));
  EXPECT_EQ(change.request.place(), (Place{"f", "b.txt"}));
  change.request.answered();
  EXPECT_EQ(change.phase(), Phase::waiting);
  EXPECT_EQ(change.request.contents(), kNoContent);
}

TEST(ChangeTest, ARequestWithoutEffectStillHasItsContentsToLetGoOf) {
  Change change = changed();
  change.request.made(ContentId(7), {});
  change.request.hadNoEffect();
  EXPECT_EQ(change.phase(), Phase::waiting);
  EXPECT_EQ(change.request.contents(), ContentId(7));
}

TEST(ChangeTest, WhatWaitsForTheUserIsNotReadyThoughARequestIsOpen) {
  Change change = changed();
  change.request.made(kNoContent, {});
  change.standing.refuse();
  EXPECT_EQ(change.phase(), Phase::attention);
  EXPECT_FALSE(change.standing.isReady());
  EXPECT_TRUE(change.request.isOpen());
}

TEST(ChangeTest, WhatIsHeldIsNotReady) {
  Change change = changed();
  change.standing.hold();
  EXPECT_EQ(change.phase(), Phase::held);
  EXPECT_FALSE(change.standing.isReady());
}

TEST(ChangeTest, AnotherChangeForgetsRefusalsButNotTheRequest) {
  Change change = changed();
  change.request.made(ContentId(7), {});
  change.standing.putOff(at(500));
  change.standing.failed("why");
  change.standing.refuse();
  change.changedAgain(9, at(200));
  EXPECT_EQ(change.phase(), Phase::sent);
  EXPECT_EQ(change.sequence(), 9);
  EXPECT_EQ(change.standing.due(), at(200));
  EXPECT_EQ(change.standing.attempts(), 0);
  EXPECT_TRUE(change.standing.reason().empty());
  EXPECT_EQ(change.base().version, "v1");
}

TEST(ChangeTest, PuttingOffCountsTheAttempts) {
  Change change = changed();
  change.standing.putOff(at(300));
  change.standing.putOff(at(700));
  EXPECT_EQ(change.standing.attempts(), 2);
  EXPECT_EQ(change.standing.due(), at(700));
  change.standing.startOver(at(50));
  EXPECT_EQ(change.standing.attempts(), 0);
  EXPECT_EQ(change.standing.due(), at(50));
}

TEST(ChangeTest, TryingAgainKeepsWhenItIsDueAndWhy) {
  Change change = changed();
  change.standing.putOff(at(300));
  change.standing.failed("why");
  change.standing.refuse();
  change.standing.tryAgain();
  EXPECT_EQ(change.phase(), Phase::waiting);
  EXPECT_EQ(change.standing.attempts(), 0);
  EXPECT_EQ(change.standing.due(), at(300));
  EXPECT_EQ(change.standing.reason(), "why");
  change.standing.succeeded();
  EXPECT_TRUE(change.standing.reason().empty());
}

TEST(ChangeTest, WhatIsDeletedHasNoContentsToSend) {
  Change change = changed();
  change.contentsChanged();
  EXPECT_TRUE(change.hasContents());
  change.deletedHere();
  EXPECT_TRUE(change.isDeleted());
  EXPECT_FALSE(change.hasContents());
}

TEST(ChangeTest, TheBaseFollowsTheHost) {
  Change change = changed();
  change.hostHasIn({"f", "b.txt"});
  EXPECT_EQ(change.base().place, (Place{"f", "b.txt"}));
  EXPECT_EQ(change.base().version, "v1");
  change.hostHas({{"g", "c.txt"}, "v2"});
  EXPECT_EQ(change.base().version, "v2");
  change.hostHasNothing();
  EXPECT_FALSE(change.base().isPlaced());
  EXPECT_TRUE(change.base().version.empty());
}

TEST(ChangeTest, TakingOverTakesTheOrderAlong) {
  Change change = changed();
  change.takeOver({NodeId(21), 5, {{"f", "b.txt"}, "v2"}, at(900)});
  EXPECT_EQ(change.node(), NodeId(20));
  EXPECT_EQ(change.sequence(), 5);
  EXPECT_EQ(change.base().version, "v2");
  EXPECT_EQ(change.standing.due(), at(100));
}

}  // namespace
}  // namespace tulo::test
