#include <gtest/gtest.h>

#include <cerrno>

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using control::DiscardReply;

using DiscardOperationTest = ControlFixture;

TEST_F(DiscardOperationTest, ADeletionIsTakenBackByItsFormerName) {
  downloaded("i:1", "a.txt", "base");
  refuseOnce();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  EXPECT_EQ(control::discard(parts(), deleted("a.txt")).discarded, 1);
  list();
  EXPECT_EQ(readThrough(named("a.txt")), "base");
  const DiscardReply again = control::discard(parts(), deleted("a.txt"));
  EXPECT_FALSE(again.outcome.ok);
  EXPECT_EQ(std::get<std::string>(again.outcome.failures->front().what), "a.txt");
}

TEST_F(DiscardOperationTest, OfAFolderItIsAboutAllThatIsInIt) {
  const NodeId folder = makeFolder("Docs");
  makeFile("a.txt", "x", folder);
  EXPECT_EQ(control::discard(parts(), nodes({folder})).discarded, 2);
  EXPECT_EQ(named("Docs"), kNoNode);
  push();
  EXPECT_TRUE(sent().empty());
}

TEST_F(DiscardOperationTest, AFolderWithWhatOnlyThisMachineHasStays) {
  const NodeId folder = makeFolder("Docs");
  const NodeId below = makeFolder("Below", folder);
  makeFile("a.txt", "x", folder);
  makeFile("b.txt~", "a backup", below);
  const DiscardReply reply = control::discard(parts(), nodes({folder}));
  EXPECT_FALSE(reply.outcome.ok);
  EXPECT_EQ(reply.discarded, 1);
  EXPECT_EQ(reply.outcome.failures->size(), 2U);
  EXPECT_EQ(names(below).count("b.txt~"), 1U);
  EXPECT_EQ(engine->edits().removeFile(below, "b.txt~"), 0);
  EXPECT_TRUE(control::discard(parts(), nodes({folder})).outcome.ok);
  EXPECT_EQ(named("Docs"), kNoNode);
}

TEST_F(DiscardOperationTest, WhatIsBeingWrittenStaysAndSaysWhy) {
  const NodeId id = makeFile("a.txt", "mine");
  OpenFile handle(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content, 4);
  handle.setWrites();
  const DiscardReply reply = control::discard(parts(), nodes({id}));
  EXPECT_EQ(
      *reply.outcome.failures,
      (control::Failures{{std::string("a.txt"), "in use: being sent, or open in a program"}}));
  EXPECT_EQ(contentsOf(id), "mine");
}

TEST_F(DiscardOperationTest, ANumberThatNobodyHasMeansNothing) {
  makeFile("a.txt", "x");
  EXPECT_EQ(control::discard(parts(), nodes({NodeId(98765)})),
            (DiscardReply{control::Outcome::with({}), 0}));
}

TEST_F(DiscardOperationTest, AFolderThatWasMovedGoesBackWithWhatIsInIt) {
  extension->folder("f:1", "Docs");
  extension->folder("f:2", "Other");
  list();
  const NodeId folder = idOf("f:1");
  extension->file("i:1", "a.txt", "inside", "f:1");
  list(folder);
  readThrough(idOf("i:1"));
  EXPECT_EQ(engine->edits().rename(kRootNode, "Docs", idOf("f:2"), "Moved", 0), 0);
  EXPECT_EQ(engine->uploader().discard(folder), 0);
  EXPECT_EQ(named("Docs"), folder);
  EXPECT_EQ(named("a.txt", folder), idOf("i:1"));
  EXPECT_EQ(contentsOf(idOf("i:1")), "inside");
  push();
  EXPECT_TRUE(sent().empty());
}

TEST_F(DiscardOperationTest, AFolderDoesNotGoBackWhereAnotherIs) {
  extension->folder("f:1", "Docs");
  list();
  const NodeId folder = idOf("f:1");
  extension->file("i:1", "a.txt", "inside", "f:1");
  list(folder);
  EXPECT_EQ(rename("Docs", "Moved"), 0);
  makeFolder("Docs");
  EXPECT_EQ(engine->uploader().discard(folder), EEXIST);
  EXPECT_EQ(named("Moved"), folder);
}

TEST_F(DiscardOperationTest, AFolderDoesNotGoBackIntoItself) {
  extension->folder("f:1", "Outer");
  list();
  extension->folder("f:2", "Inner", "f:1");
  list(idOf("f:1"));
  const NodeId outer = idOf("f:1");
  const NodeId inner = idOf("f:2");
  extension->file("i:1", "a.txt", "inside", "f:2");
  list(inner);
  EXPECT_EQ(engine->edits().rename(outer, "Inner", kRootNode, "Inner", 0), 0);
  EXPECT_EQ(engine->edits().rename(kRootNode, "Outer", inner, "Outer", 0), 0);
  EXPECT_EQ(engine->uploader().discard(inner), EINVAL);
  EXPECT_EQ(named("Inner"), inner);
  EXPECT_EQ(engine->uploader().discard(outer), 0);
  list();
  EXPECT_NE(named("Outer"), kNoNode);
}

}  // namespace
}  // namespace tulo::test
