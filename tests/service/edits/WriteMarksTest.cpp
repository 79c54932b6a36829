#include "service/edits/WriteMarks.h"

#include <gtest/gtest.h>

#include <optional>

#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

TEST(WriteMarksTest, AWriteIsUnsettledUntilItsRowHasIt) {
  WriteMarks marks(at(1));
  EXPECT_FALSE(marks.isUnsettled());
  EXPECT_EQ(marks.last(), at(1));
  { const WriteMarks::Write write(marks, at(5)); }
  EXPECT_TRUE(marks.isUnsettled());
  EXPECT_EQ(marks.last(), at(5));
  {
    WriteMarks::Settling settling(marks);
    EXPECT_TRUE(settling.isWanted());
    EXPECT_TRUE(marks.isUnsettled());
    settling.done();
  }
  EXPECT_FALSE(marks.isUnsettled());
  EXPECT_FALSE(WriteMarks::Settling(marks).isWanted());
}

TEST(WriteMarksTest, WhatIsNotDoneLeavesAllAsItWas) {
  WriteMarks marks(at(1));
  { const WriteMarks::Settling nothing(marks); }
  EXPECT_FALSE(marks.isUnsettled());
  { const WriteMarks::Write write(marks, at(5)); }
  { const WriteMarks::Settling failing(marks); }
  EXPECT_TRUE(marks.isUnsettled());
}

TEST(WriteMarksTest, AWriteThatEndsLaterIsNotSettledByWhoeverWasFaster) {
  WriteMarks marks(at(1));
  std::optional<WriteMarks::Write> write(std::in_place, marks, at(5));
  {
    WriteMarks::Settling settling(marks);
    settling.done();
  }
  EXPECT_FALSE(marks.isUnsettled());
  write.reset();
  EXPECT_TRUE(marks.isUnsettled());
}

}  // namespace
}  // namespace tulo::test
