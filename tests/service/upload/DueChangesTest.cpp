#include "service/upload/DueChanges.h"

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

class DueChangesTest : public UploadFixture {
 protected:
  // The first pass, in which there is nothing yet, is over.
  DueChangesTest() : due(engine->replica()) { pass(); }

  // All that comes until the pass ends.
  std::vector<NodeId> pass() {
    std::vector<NodeId> result;
    while (const auto node = due.next(clock, false))
      result.push_back(*node);
    return result;
  }

  DueChanges due;
};

TEST_F(DueChangesTest, EachThatIsDueComesOnceInAPass) {
  const NodeId one = makeFile("a.txt", "x");
  const NodeId two = makeFile("b.txt", "x");
  clock += kQuiet;
  EXPECT_EQ(pass(), (std::vector<NodeId>{one, two}));
  EXPECT_TRUE(pass().empty());
}

TEST_F(DueChangesTest, MoreThanOneBatchComes) {
  for (int i = 0; i < 300; ++i)
    make("f" + std::to_string(i));
  clock += kQuiet;
  EXPECT_EQ(pass().size(), 300U);
}

TEST_F(DueChangesTest, WhatIsNotDueDoesNotCome) {
  makeFile("a.txt", "x");
  EXPECT_TRUE(pass().empty());
}

TEST_F(DueChangesTest, WhatWasPassedByComesAgainOnceSomethingHappened) {
  const NodeId id = makeFile("a.txt", "x");
  clock += kQuiet;
  EXPECT_EQ(pass().size(), 1U);
  EXPECT_FALSE(due.next(clock, false));
  due.again();
  EXPECT_EQ(due.next(clock, false), id);
}

TEST_F(DueChangesTest, WhatBecomesDueLaterComesWithoutANewPass) {
  makeFile("a.txt", "x");
  clock += kQuiet;
  EXPECT_EQ(pass().size(), 1U);
  const NodeId later = makeFile("b.txt", "x");
  clock += kQuiet;
  EXPECT_EQ(due.next(clock, false), later);
}

}  // namespace
}  // namespace tulo::test
