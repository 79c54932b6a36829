#include "service/upload/ConflictName.h"

#include <gtest/gtest.h>

#include "tests/service/support/Times.h"

namespace tulo::test {
namespace {

// About noon, so that the day is the same in most time zones.
const WallSeconds kNoon = atSecond(1'800'014'400);

std::string nameOf(const std::string& name, unsigned attempt = 1) {
  return conflictedName(name, "laptop", kNoon, attempt);
}

TEST(ConflictNameTest, TheMarkStandsBeforeTheExtension) {
  EXPECT_EQ(nameOf("report.odt"), "report (conflicted copy of laptop, 2027-01-15).odt");
  EXPECT_EQ(nameOf("archive.tar.gz"), "archive.tar (conflicted copy of laptop, 2027-01-15).gz");
}

TEST(ConflictNameTest, TheMarkStandsAtTheEndWithoutAnExtension) {
  EXPECT_EQ(nameOf("README"), "README (conflicted copy of laptop, 2027-01-15)");
  EXPECT_EQ(nameOf(".profile"), ".profile (conflicted copy of laptop, 2027-01-15)");
}

TEST(ConflictNameTest, FurtherAttemptsAreCounted) {
  EXPECT_EQ(nameOf("a.txt", 2), "a (conflicted copy of laptop, 2027-01-15, 2).txt");
  EXPECT_NE(nameOf("a.txt", 2), nameOf("a.txt", 3));
}

TEST(ConflictNameTest, NoNameIsLongerThanAFolderCanHold) {
  for (const std::string& stem :
       {std::string(251, 'n'), std::string("a.") + std::string(249, 'x')}) {
    const std::string name = nameOf(stem + ".odt", 12);
    EXPECT_LE(name.size(), 255U);
    EXPECT_TRUE(name.ends_with(" (conflicted copy of laptop, 2027-01-15, 12).odt"));
  }
}

TEST(ConflictNameTest, ALongNameOfTheMachineIsCut) {
  const std::string name = conflictedName(std::string(255, 'n'), std::string(253, 'm'), kNoon, 1);
  EXPECT_LE(name.size(), 255U);
  EXPECT_TRUE(name.ends_with(", 2027-01-15)"));
}

}  // namespace
}  // namespace tulo::test
