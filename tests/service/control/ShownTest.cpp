#include "service/control/Shown.h"

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using control::ChangeKind;
using control::ChangeState;
using control::PendingChange;

class ShownTest : public ControlFixture {
 protected:
  std::optional<PendingChange> shown(NodeId node) {
    return engine->replica().read([&](ReplicaReader& reader) {
      return control::shownInFull(engine->openFiles(), reader, node);
    });
  }
};

TEST_F(ShownTest, ANewFileWaitsWithItsSize) {
  const auto change = shown(makeFile("a.txt", "hello"));
  ASSERT_TRUE(change);
  EXPECT_EQ(change->path, "a.txt");
  EXPECT_EQ(change->kind, ChangeKind::added);
  EXPECT_EQ(change->state, ChangeState::waiting);
  EXPECT_EQ(change->size, 5);
  EXPECT_FALSE(change->folder);
  EXPECT_FALSE(change->from);
}

TEST_F(ShownTest, WhatTheHostHasTooIsNotShown) {
  EXPECT_FALSE(shown(downloaded("i:1", "a.txt", "base")));
}

TEST_F(ShownTest, ARenamedFileSaysWhereItWas) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  EXPECT_EQ(shown(id)->kind, ChangeKind::place);
  EXPECT_EQ(shown(id)->from, "a.txt");
}

TEST_F(ShownTest, ADeletedFileHasNoSize) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  EXPECT_EQ(shown(id)->kind, ChangeKind::deleted);
  EXPECT_FALSE(shown(id)->size);
  EXPECT_EQ(shown(id)->path, "a.txt");
}

TEST_F(ShownTest, WhatIsOpenForWritingSaysSo) {
  const NodeId id = makeFile("a.txt", "mine");
  OpenFile handle(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content, 4);
  handle.setWrites();
  EXPECT_EQ(shown(id)->state, ChangeState::beingWritten);
}

TEST_F(ShownTest, WhatWasRefusedNeedsAttention) {
  const NodeId id = refused("a?");
  EXPECT_EQ(shown(id)->state, ChangeState::needsAttention);
  EXPECT_EQ(shown(id)->attempts, 1);
  EXPECT_FALSE(shown(id)->error.empty());
}

TEST_F(ShownTest, WhatFailedForNowIsTriedAgain) {
  extension->scriptMutation(
      {.error = platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable)});
  const NodeId id = makeFile("a.txt", "x");
  push();
  EXPECT_EQ(shown(id)->state, ChangeState::tryingAgain);
}

TEST_F(ShownTest, ANewFolderSaysWhatStaysInIt) {
  const NodeId folder = makeFolder("Docs");
  EXPECT_TRUE(shown(folder)->keeps.empty());
  makeFile("a~", "a backup", folder);
  EXPECT_TRUE(shown(folder)->folder);
  EXPECT_EQ(shown(folder)->keeps, std::vector<std::string>{"a~"});
}

TEST_F(ShownTest, PathsBeginBelowTheRoot) {
  const NodeId folder = makeFolder("Docs");
  EXPECT_EQ(control::pathOf(engine->replica(), makeFile("a", "x", folder)), "Docs/a");
  EXPECT_EQ(control::pathOf(engine->replica(), kRootNode), "");
}

TEST_F(ShownTest, TheHostIsAsTheUploaderKnowsIt) {
  Uploader::Statistics statistics;
  statistics.present = false;
  statistics.reachable = false;
  statistics.paused = true;
  EXPECT_EQ(control::hostState(statistics),
            (control::HostState{.present = false, .reachable = false, .paused = true}));
}

}  // namespace
}  // namespace tulo::test
