#include "service/contents/OpenTickets.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

namespace tulo::test {
namespace {

class OpenTicketsTest : public testing::Test {
 protected:
  OpenTickets::Ticket add() {
    return tickets.add([this](const OpenAnswer& answer) { errors.push_back(answer.error); });
  }

  OpenTickets tickets;
  std::vector<int> errors;
};

TEST_F(OpenTicketsTest, TheFirstAnswerIsTheOnlyOne) {
  const auto ticket = add();
  EXPECT_TRUE(tickets.arm(ticket));
  tickets.answer(ticket, {EIO, nullptr});
  tickets.answer(ticket, {0, nullptr});
  tickets.cancel(ticket);
  tickets.stop();
  EXPECT_EQ(errors, std::vector<int>{EIO});
}

TEST_F(OpenTicketsTest, EachWaiterHasAnAnswerOfItsOwn) {
  const auto one = add();
  const auto two = add();
  EXPECT_NE(one, two);
  EXPECT_TRUE(tickets.arm(one));
  EXPECT_TRUE(tickets.arm(two));
  tickets.answer(two, {ESTALE, nullptr});
  EXPECT_EQ(errors, std::vector<int>{ESTALE});
  tickets.answer(one, {0, nullptr});
  EXPECT_EQ(errors, (std::vector<int>{ESTALE, 0}));
}

TEST_F(OpenTicketsTest, WhoGivesUpWhileWaitingIsToldAtOnce) {
  const auto ticket = add();
  EXPECT_TRUE(tickets.arm(ticket));
  tickets.cancel(ticket);
  EXPECT_EQ(errors, std::vector<int>{EINTR});
  EXPECT_FALSE(tickets.arm(ticket));
}

TEST_F(OpenTicketsTest, WhoGivesUpBeforeIsToldWhenArmed) {
  const auto ticket = add();
  tickets.cancel(ticket);
  EXPECT_TRUE(errors.empty());
  EXPECT_FALSE(tickets.arm(ticket));
  EXPECT_EQ(errors, std::vector<int>{EINTR});
}

TEST_F(OpenTicketsTest, StoppingTellsWhoeverWaitsAndWhoeverComesLater) {
  add();
  const auto armed = add();
  EXPECT_TRUE(tickets.arm(armed));
  tickets.stop();
  EXPECT_EQ(errors, (std::vector<int>{EINTR, EINTR}));
  EXPECT_FALSE(tickets.arm(armed));
  EXPECT_FALSE(tickets.arm(add()));
  EXPECT_EQ(errors.size(), 3U);
}

TEST_F(OpenTicketsTest, AnAnswerMayAskForTheNextOpen) {
  OpenTickets::Ticket next = 0;
  const auto ticket = tickets.add([&](const OpenAnswer&) { next = add(); });
  EXPECT_TRUE(tickets.arm(ticket));
  tickets.answer(ticket, {0, nullptr});
  EXPECT_TRUE(tickets.arm(next));
}

}  // namespace
}  // namespace tulo::test
