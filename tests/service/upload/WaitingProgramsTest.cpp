// A program that waits for the host's word on what it changed.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

using platform::fileProviderError;
using platform::NSFileProviderErrorCode;

class WaitingProgramsTest : public WritingFixture {
 protected:
  // What a program is told that waits for the host; -1 while it does.
  struct Program {
    int told = -1;
    Verdicts::Ticket ticket = 0;
  };

  void await(Program& program, NodeId node, milliseconds patience = milliseconds(5000)) {
    program.ticket =
        engine->uploader().verdicts().begin([&program](int error) { program.told = error; });
    engine->uploader().awaitVerdict(program.ticket, {node}, patience);
  }
};

TEST_F(WaitingProgramsTest, AProgramThatWaitsIsToldThatTheHostHasIt) {
  const NodeId id = makeFile("a.txt", "hello");
  Program program;
  await(program, id);
  EXPECT_EQ(program.told, -1);
  drain();
  EXPECT_EQ(program.told, 0);
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(WaitingProgramsTest, WhatNeedsNoHostIsToldAtOnce) {
  const NodeId id = makeFile("a.txt~", "hello");
  std::filesystem::remove(directory.file("fp.sock"));
  Program program;
  await(program, id);
  EXPECT_EQ(program.told, 0);
}

TEST_F(WaitingProgramsTest, WithoutAHostItIsToldAtOnceAndGoesUpLater) {
  const NodeId id = makeFile("a.txt", "hello");
  std::filesystem::remove(directory.file("fp.sock"));
  Program program;
  await(program, id);
  EXPECT_EQ(program.told, EHOSTDOWN);
  writeFile(directory.file("fp.sock"), "");
  push();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(WaitingProgramsTest, TheHostsVerdictComesByTheTableOfErrors) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->scriptMutation(
      {.error = fileProviderError(NSFileProviderErrorCode::insufficientQuota)});
  Program program;
  await(program, id);
  drain();
  EXPECT_EQ(program.told, EDQUOT);
  EXPECT_TRUE(change(id));
}

TEST_F(WaitingProgramsTest, AFileGoesUpAlthoughItIsStillOpenWhenSomebodyWaits) {
  const NodeId id = makeFile("a.txt", "first");
  OpenFile handle(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content, 5);
  handle.setWrites();
  push();
  EXPECT_TRUE(sent().empty());
  Program program;
  await(program, id);
  drain();
  EXPECT_EQ(program.told, 0);
  EXPECT_EQ(hostContents("a.txt"), "first");
  write(id, "second");
  push();
  EXPECT_EQ(hostContents("a.txt"), "first");
}

TEST_F(WaitingProgramsTest, WhatIsInAFolderThatFailsFailsWithIt) {
  const NodeId folder = makeFolder("Docs");
  const NodeId id = makeFile("a.txt", "x", folder);
  extension->scriptMutation(
      {.error = fileProviderError(NSFileProviderErrorCode::serverUnreachable)});
  Program program;
  await(program, id);
  drain();
  EXPECT_EQ(program.told, EHOSTDOWN);
}

TEST_F(WaitingProgramsTest, AnInterruptedProgramLeavesItsChangeOnTheWay) {
  const NodeId id = makeFile("a.txt", "hello");
  Program program;
  await(program, id);
  engine->uploader().verdicts().cancel(program.ticket, EINTR);
  EXPECT_EQ(program.told, EINTR);
  drain();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(WaitingProgramsTest, WhoWaitsWhenTheServiceEndsIsToldSo) {
  const NodeId id = makeFile("a.txt", "hello");
  Program before;
  await(before, id);
  engine->uploader().stop();
  EXPECT_EQ(before.told, EIO);
  Program after;
  await(after, id);
  EXPECT_EQ(after.told, EIO);
}

}  // namespace
}  // namespace tulo::test
