#include "service/edits/Edits.h"

#include <cerrno>

#include "tests/service/support/EditsFixture.h"

namespace tulo::test {
namespace {

using namespace platform;

class EditsTest : public EditsFixture {};

TEST_F(EditsTest, ALinkStaysHereAndTellsItsTarget) {
  const EditResult made = edits().makeLink(kRootNode, "link", "some/where");
  ASSERT_EQ(made.error, 0);
  EXPECT_EQ(made.entry.size, 10);
  EXPECT_EQ(edits().readLink(made.entry.id), "some/where");
  EXPECT_FALSE(change(made.entry.id));
  const NodeId file = makeFile("a.txt", "x");
  EXPECT_FALSE(edits().readLink(file));
}

TEST_F(EditsTest, WhatMayNotBeWrittenSaysSo) {
  const NodeId locked = fileAllowing("a", 47 & ~NSFileProviderItemCapabilitiesAllowsWriting);
  EXPECT_EQ(edits().mayWrite(locked), EACCES);
  EXPECT_EQ(edits().mayWrite(makeFile("b", "x")), 0);
  EXPECT_EQ(edits().mayWrite(makeFolder("c")), EISDIR);
  EXPECT_EQ(edits().mayWrite(edits().makeLink(kRootNode, "d", "b").entry.id), ELOOP);
  EXPECT_EQ(edits().mayWrite(NodeId(999'999)), ESTALE);
}

TEST_F(EditsTest, ModesAndTimesAreKeptHere) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(edits().setMode(id, 0751), 0);
  EXPECT_EQ(engine->files().setModified(id, {.tv_sec = 1'234'567'890, .tv_nsec = 42}), 0);
  list();
  EXPECT_EQ(row(id)->mode & 0777, 0751);
  EXPECT_EQ(row(id)->modified.whole, atSecond(1'234'567'890));
  EXPECT_EQ(row(id)->modified.beyond, nanoseconds(42));
  EXPECT_FALSE(change(id));
  extension->edit("i:1", "new contents");
  list();
  EXPECT_EQ(row(id)->modified.whole, atSecond(1'700'000'000));
}

}  // namespace
}  // namespace tulo::test
