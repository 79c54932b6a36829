#include "host/base/HostLog.h"

#include <gtest/gtest.h>

#include "tests/support/LogRecorder.h"

namespace tulo::host {
namespace {

TEST(HostLogTest, RequestsAreLoggedOnlyWhereThatWasAskedFor) {
  const test::LogRecorder recorder;
  HostLog(false).request("one");
  EXPECT_TRUE(recorder.lines().empty());
  HostLog(true).request("two");
  ASSERT_EQ(recorder.lines().size(), 1U);
  EXPECT_EQ(recorder.lines()[0].message, "two");
  EXPECT_EQ(recorder.lines()[0].level, "info");
}

TEST(HostLogTest, ErrorsAreErrors) {
  const test::LogRecorder recorder;
  HostLog(false).error("bad %s");
  ASSERT_EQ(recorder.lines().size(), 1U);
  EXPECT_EQ(recorder.lines()[0].message, "bad %s");
  EXPECT_EQ(recorder.lines()[0].level, "error");
}

TEST(HostLogTest, OrdinaryTextStandsInQuotesAsItIs) {
  EXPECT_EQ(inQuotes("a b"), "\"a b\"");
  EXPECT_EQ(inQuotes("\u00e4\u20ac\U0001F600"), "\"\u00e4\u20ac\U0001F600\"");
  EXPECT_EQ(inQuotes(""), "\"\"");
}

TEST(HostLogTest, NoNameCanForgeALine) {
  EXPECT_EQ(inQuotes("a\nb"), "\"a\\x0Ab\"");
  EXPECT_EQ(inQuotes("\x1B[31m\x7F"), "\"\\x1B[31m\\x7F\"");
}

TEST(HostLogTest, BrokenTextIsShownByteByByte) {
  EXPECT_EQ(inQuotes("caf\xE9"), "\"caf\\xE9\"");
  EXPECT_EQ(inQuotes("\xE2\x82"), "\"\\xE2\\x82\"") << "cut off";
  EXPECT_EQ(inQuotes("\xC3("), "\"\\xC3(\"");
  EXPECT_EQ(inQuotes("\xFF"), "\"\\xFF\"");
}

}  // namespace
}  // namespace tulo::host
