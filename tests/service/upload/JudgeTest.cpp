#include "service/upload/Judge.h"

#include <cerrno>

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

constexpr int kWaits = -1;

class JudgeTest : public UploadFixture {
 protected:
  JudgeTest() : judge(engine->replica(), engine->edits().localNames(), verdicts) {}

  // A program that waits for the node; what it was told is in the result.
  std::shared_ptr<int> await(NodeId node) {
    const auto told = std::make_shared<int>(kWaits);
    const auto ticket = verdicts.begin([told](int error) { *told = error; });
    verdicts.await(ticket, {node}, far());
    return told;
  }

  WallTime far() const { return clock + std::chrono::hours(1); }

  Verdicts verdicts;
  Judge judge;
};

TEST_F(JudgeTest, WhatIsToGoUpIsWaitedFor) {
  const NodeId id = makeFile("a.txt", "hello");
  const auto told = await(id);
  judge.check(id);
  EXPECT_EQ(*told, kWaits);
}

TEST_F(JudgeTest, WhatTheHostHasIsDone) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  const auto told = await(id);
  judge.check(id);
  EXPECT_EQ(*told, 0);
}

TEST_F(JudgeTest, WhatStaysHereIsDone) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "a.part"), 0);
  const auto told = await(id);
  judge.check(id);
  EXPECT_EQ(*told, 0);
}

TEST_F(JudgeTest, WhatWasRefusedFails) {
  const NodeId id = makeFile("a?.txt", "hello");
  failOnce(platform::cocoaError(platform::NSFileWriteInvalidFileNameError));
  push();
  const auto told = await(id);
  judge.check(id);
  EXPECT_EQ(*told, EIO);
}

TEST_F(JudgeTest, WhatIsInANewFolderSharesItsVerdict) {
  const NodeId folder = makeFolder("Docs");
  const auto inside = await(makeFile("a.txt", "x", folder));
  const auto elsewhere = await(makeFile("b.txt", "x"));
  const auto itself = await(folder);
  judge.failed(folder, EDQUOT, false);
  EXPECT_EQ(*inside, EDQUOT);
  EXPECT_EQ(*itself, EDQUOT);
  EXPECT_EQ(*elsewhere, kWaits);
}

TEST_F(JudgeTest, WhatIsInAFolderOfTheHostsDoesNotWaitForIt) {
  extension->folder("f:1", "Docs");
  list();
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(refresh(folder), 0);
  extension->file("i:1", "a.txt", "x", "f:1");
  list(folder);
  const auto inside = await(idOf("i:1"));
  judge.failed(folder, EDQUOT, false);
  EXPECT_EQ(*inside, kWaits);
}

TEST_F(JudgeTest, WhenNothingGoesUpAllAreTold) {
  const auto one = await(makeFile("a.txt", "x"));
  const NodeId other = makeFile("b.txt", "x");
  judge.failed(other, EHOSTDOWN, true);
  EXPECT_EQ(*one, EHOSTDOWN);
}

}  // namespace
}  // namespace tulo::test
