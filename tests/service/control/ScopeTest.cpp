#include "service/control/Scope.h"

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using control::changedIn;
using control::Scope;
using control::scopeOf;

using ScopeTest = ControlFixture;

TEST_F(ScopeTest, NamingNothingMeansEverything) {
  const NodeId id = makeFile("a.txt", "x");
  const Scope scope = scopeOf(parts(), everything());
  EXPECT_TRUE(scope.everything);
  EXPECT_EQ(changedIn(parts(), scope), std::vector<NodeId>{id});
}

TEST_F(ScopeTest, SoDoesTheRoot) {
  EXPECT_TRUE(scopeOf(parts(), nodes({kRootNode})).everything);
}

TEST_F(ScopeTest, AnEmptyListMeansNothing) {
  makeFile("a.txt", "x");
  const Scope scope = scopeOf(parts(), nodes({}));
  EXPECT_FALSE(scope.everything);
  EXPECT_TRUE(changedIn(parts(), scope).empty());
}

TEST_F(ScopeTest, AFolderStandsForWhatIsInItWhichComesFirst) {
  const NodeId folder = makeFolder("Docs");
  const NodeId inside = makeFile("a.txt", "x", folder);
  makeFile("beside", "x");
  EXPECT_EQ(changedIn(parts(), scopeOf(parts(), nodes({folder}))),
            (std::vector<NodeId>{inside, folder}));
}

TEST_F(ScopeTest, WhatIsNamedTwiceIsMeantOnce) {
  const NodeId folder = makeFolder("Docs");
  const NodeId inside = makeFile("a.txt", "x", folder);
  EXPECT_EQ(changedIn(parts(), scopeOf(parts(), nodes({inside, folder, inside}))),
            (std::vector<NodeId>{inside, folder}));
}

TEST_F(ScopeTest, WhatWasDeletedIsFoundByItsFormerName) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  const Scope scope = scopeOf(parts(), deleted("a.txt"));
  EXPECT_EQ(scope.nodes, std::vector<NodeId>{id});
  EXPECT_TRUE(scope.unknown.empty());
}

TEST_F(ScopeTest, ANameThatStandsForNothingIsAFailure) {
  const Scope scope = scopeOf(parts(), deleted("never.txt"));
  EXPECT_FALSE(scope.everything);
  EXPECT_TRUE(scope.nodes.empty());
  EXPECT_EQ(
      scope.unknown,
      (control::Failures{{std::string("never.txt"), std::string("No such file or directory")}}));
}

}  // namespace
}  // namespace tulo::test
