#include "service/upload/Planner.h"

#include "service/replica/Meta.h"
#include "service/upload/AsideName.h"
#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

class PlannerTest : public UploadFixture {
 protected:
  // As the planner sees it, with nothing sent.
  Planned plan(NodeId id, bool aside = false) {
    const Planner planner(engine->edits().localNames(), engine->store(),
                          [](NodeId) { return false; });
    return inTransaction(
        [&](ReplicaWriter& writer) { return planner.plan(writer, id, aside, clock); });
  }
};

TEST_F(PlannerTest, WhatWasWrittenJustNowIsNotPlanned) {
  const NodeId id = makeFile("a.txt", "hello");
  EXPECT_FALSE(plan(id).plan);
  clock += kQuiet;
  const Planned planned = plan(id);
  ASSERT_TRUE(planned.plan);
  EXPECT_EQ(planned.plan->kind, Plan::Kind::create);
  EXPECT_EQ(planned.plan->parentIdentifier, root());
  EXPECT_TRUE(planned.plan->sendsContents());
}

TEST_F(PlannerTest, WhatIsInAFolderThatTheHostLacksIsNotPlanned) {
  const NodeId id = makeFile("a.txt", "hello", makeFolder("Docs"));
  clock += kQuiet;
  EXPECT_FALSE(plan(id).plan);
  EXPECT_TRUE(change(id));
}

TEST_F(PlannerTest, ARequestWithoutAnAnswerIsPlannedAsItWasMade) {
  const NodeId id = makeFile("a.txt", "hello");
  failOnce(platform::fileProviderError(platform::NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  clock += kQuiet;
  const Planned planned = plan(id);
  ASSERT_TRUE(planned.plan);
  EXPECT_EQ(planned.plan->kind, Plan::Kind::create);
  EXPECT_EQ(planned.plan->node.filename, "a.txt");
  EXPECT_TRUE(planned.plan->sendsContents());
}

TEST_F(PlannerTest, WhatStepsAsideKeepsItsFolderAndRemembersItsName) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  const Planned planned = plan(id, true);
  ASSERT_TRUE(planned.plan);
  EXPECT_TRUE(isAsideName(planned.plan->node.filename));
  EXPECT_EQ(planned.plan->parentIdentifier, root());
  EXPECT_EQ(planned.plan->fields, platform::NSFileProviderItemFilename);
  EXPECT_EQ(engine->replica().read([&](ReplicaReader& reader) {
    return meta::text(reader, asideKey(planned.plan->node.filename));
  }),
            root() + "\na.txt");
}

TEST_F(PlannerTest, ABackupWhoseContentsAreNotHereIsWantedFirst) {
  extension->file("i:1", "doc.txt", "old");
  list();
  const NodeId backup = idOf("i:1");
  EXPECT_EQ(rename("doc.txt", "doc.txt~"), 0);
  const NodeId fresh = makeFile("doc.txt", "saved");
  clock += kQuiet;
  const Planned planned = plan(fresh);
  EXPECT_FALSE(planned.plan);
  EXPECT_EQ(planned.wanted, backup);
}

TEST_F(PlannerTest, AnEmptyFileGoesUpBecauseItIsEmpty) {
  makeFile("empty", "");
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].contents, "");
}

TEST_F(PlannerTest, WhatComesAndGoesIsNeverSent) {
  makeFile("a.txt", "hello");
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(counts().pending, 0);
}

TEST_F(PlannerTest, RenamesOfOneItemAreOneRequest) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  EXPECT_EQ(rename("b.txt", "c.txt"), 0);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].name, "c.txt");
  EXPECT_FALSE(sent()[0].contents);
  EXPECT_EQ(extension->find("i:1")->name, "c.txt");
  EXPECT_FALSE(change(id));
}

TEST_F(PlannerTest, ARenameThereAndBackIsNotSent) {
  downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  EXPECT_EQ(rename("b.txt", "a.txt"), 0);
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(counts().pending, 0);
}

TEST_F(PlannerTest, TemporaryNamesStayHere) {
  makeFile(".~lock.doc.odt#", "me");
  makeFile("a.part", "half");
  push();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(rename("a.part", "a.bin"), 0);
  push();
  EXPECT_EQ(hostContents("a.bin"), "half");
}

TEST_F(PlannerTest, MovesBetweenFoldersKeepTheIdentity) {
  extension->folder("f:1", "Docs");
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(refresh(folder), 0);
  EXPECT_EQ(engine->edits().rename(kRootNode, "a.txt", folder, "a.txt", 0), 0);
  push();
  ASSERT_EQ(sent().size(), 1U);
  EXPECT_EQ(sent()[0].identifier, "i:1");
  EXPECT_EQ(extension->find("i:1")->parent, "f:1");
  EXPECT_FALSE(change(id));
}

}  // namespace
}  // namespace tulo::test
