#include <gtest/gtest.h>

#include <map>

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using control::ChangeKind;
using control::ChangesReply;
using control::ChangeState;

using ChangesOperationTest = ControlFixture;

TEST_F(ChangesOperationTest, ARefusedDeletionIsFoundByItsFormerName) {
  downloaded("i:1", "a.txt", "base");
  refuseOnce();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  const ChangesReply reply = control::changes(parts(), deleted("a.txt"));
  ASSERT_EQ(reply.changes.size(), 1U);
  EXPECT_EQ(reply.changes[0].kind, ChangeKind::deleted);
  EXPECT_EQ(reply.changes[0].state, ChangeState::needsAttention);
}

TEST_F(ChangesOperationTest, AFolderSaysWhatKeepsItFromBeingDiscarded) {
  const NodeId folder = makeFolder("Docs");
  const NodeId below = makeFolder("Below", folder);
  makeFile("a.txt", "x", folder);
  makeFile("b.txt~", "a backup", below);
  std::map<std::string, std::vector<std::string>> keeps;
  for (const auto& change : control::changes(parts(), nodes({folder})).changes)
    keeps[change.path] = change.keeps;
  EXPECT_EQ(keeps["Docs"], std::vector<std::string>{"Below/b.txt~"});
  EXPECT_EQ(keeps["Docs/Below"], std::vector<std::string>{"b.txt~"});
  EXPECT_TRUE(keeps["Docs/a.txt"].empty());
}

TEST_F(ChangesOperationTest, ANameThatStandsForNothingIsAFailure) {
  makeFile("a.txt", "x");
  const ChangesReply reply = control::changes(parts(), deleted("never.txt"));
  EXPECT_FALSE(reply.outcome.ok);
  EXPECT_TRUE(reply.changes.empty());
}

TEST_F(ChangesOperationTest, ANumberThatNobodyHasMeansNothing) {
  makeFile("a.txt", "x");
  EXPECT_EQ(control::changes(parts(), nodes({NodeId(98765)})),
            (ChangesReply{control::Outcome::with({}), {}}));
}

}  // namespace
}  // namespace tulo::test
