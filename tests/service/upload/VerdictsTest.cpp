#include "service/upload/Verdicts.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

const WallTime kNever = at(1'000'000);

// What one waiting program was told; -1 while it waits.
struct Program {
  int told = -1;
  int times = 0;

  Verdicts::Completion completion() {
    return [this](int error) {
      told = error;
      ++times;
    };
  }
};

class VerdictsTest : public ::testing::Test {
 protected:
  Verdicts::Ticket await(Program& program, const std::vector<NodeId>& nodes,
                         WallTime deadline = kNever) {
    const Verdicts::Ticket ticket = verdicts.begin(program.completion());
    verdicts.await(ticket, nodes, deadline);
    return ticket;
  }

  Verdicts verdicts;
};

TEST_F(VerdictsTest, TellsThoseWhoWaitForTheNode) {
  Program one;
  Program other;
  await(one, {NodeId(20)});
  await(other, {NodeId(21)});
  verdicts.settled(NodeId(20));
  EXPECT_EQ(one.told, 0);
  EXPECT_EQ(other.told, -1);
  EXPECT_FALSE(verdicts.isAwaited(NodeId(20)));
  EXPECT_TRUE(verdicts.isAwaited(NodeId(21)));
  verdicts.failed(NodeId(21), EDQUOT);
  EXPECT_EQ(other.told, EDQUOT);
  EXPECT_TRUE(verdicts.awaited().empty());
}

TEST_F(VerdictsTest, TellsAllWhoWaitForOneNode) {
  Program one;
  Program other;
  await(one, {NodeId(20)});
  await(other, {NodeId(20)});
  verdicts.failed(NodeId(20), EIO);
  EXPECT_EQ(one.told, EIO);
  EXPECT_EQ(other.told, EIO);
}

TEST_F(VerdictsTest, SeveralNodesAreWaitedForTogetherButFailAlone) {
  Program good;
  Program bad;
  await(good, {NodeId(20), NodeId(21)});
  await(bad, {NodeId(20), NodeId(22)});
  verdicts.settled(NodeId(20));
  EXPECT_EQ(good.told, -1);
  verdicts.settled(NodeId(21));
  EXPECT_EQ(good.told, 0);
  verdicts.failed(NodeId(22), EINVAL);
  EXPECT_EQ(bad.told, EINVAL);
}

TEST_F(VerdictsTest, ACancelledOneIsToldOnceAndNeverWaits) {
  Program program;
  const Verdicts::Ticket ticket = verdicts.begin(program.completion());
  verdicts.cancel(ticket, EINTR);
  verdicts.await(ticket, {NodeId(20)}, kNever);
  verdicts.settled(NodeId(20));
  verdicts.cancel(ticket, EIO);
  EXPECT_EQ(program.told, EINTR);
  EXPECT_EQ(program.times, 1);
  EXPECT_FALSE(verdicts.isAwaited(NodeId(20)));
}

TEST_F(VerdictsTest, WhoDoesNotWaitYetIsNotToldThatAllFail) {
  Program waiting;
  Program early;
  await(waiting, {NodeId(20)});
  const Verdicts::Ticket ticket = verdicts.begin(early.completion());
  verdicts.failAll(EHOSTDOWN);
  EXPECT_EQ(waiting.told, EHOSTDOWN);
  EXPECT_EQ(early.told, -1);
  verdicts.await(ticket, {NodeId(21)}, kNever);
  verdicts.failAll(EHOSTDOWN);
  EXPECT_EQ(early.told, EHOSTDOWN);
}

TEST_F(VerdictsTest, TheDeadlineEndsTheWaiting) {
  Program soon;
  Program later;
  Program early;
  verdicts.begin(early.completion());
  EXPECT_EQ(verdicts.nextDeadline(), std::nullopt);
  await(later, {NodeId(20)}, at(200));
  await(soon, {NodeId(20)}, at(100));
  EXPECT_EQ(verdicts.nextDeadline(), at(100));
  verdicts.expire(at(99));
  EXPECT_EQ(soon.told, -1);
  verdicts.expire(at(100));
  EXPECT_EQ(soon.told, ETIMEDOUT);
  EXPECT_EQ(later.told, -1);
  EXPECT_EQ(early.told, -1);
  EXPECT_EQ(verdicts.nextDeadline(), at(200));
}

TEST_F(VerdictsTest, ACompletionMayBeginToWaitAgain) {
  Program again;
  const Verdicts::Ticket ticket = verdicts.begin([&](int) { await(again, {NodeId(21)}); });
  verdicts.await(ticket, {NodeId(20)}, kNever);
  verdicts.settled(NodeId(20));
  EXPECT_TRUE(verdicts.isAwaited(NodeId(21)));
  verdicts.settled(NodeId(21));
  EXPECT_EQ(again.told, 0);
}

}  // namespace
}  // namespace tulo::test
