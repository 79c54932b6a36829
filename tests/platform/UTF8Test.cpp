#include "platform/UTF8.h"

#include <gtest/gtest.h>

#include <string>

namespace tulo::platform::utf8 {
namespace {

struct SequenceCase {
  const char* name;
  std::string bytes;
  std::size_t length;
  std::optional<char32_t> codePoint;
};

void PrintTo(const SequenceCase& row, std::ostream* out) {
  *out << row.name;
}

class SequenceTest : public testing::TestWithParam<SequenceCase> {};

TEST_P(SequenceTest, IsRecognisedAtBothEnds) {
  const SequenceCase& row = GetParam();
  EXPECT_EQ(sequenceLength(row.bytes), row.length);
  EXPECT_EQ(firstCodePoint(row.bytes + "tail"), row.codePoint);
  EXPECT_EQ(lastCodePoint("head" + row.bytes), row.codePoint);
  EXPECT_EQ(isValid(row.bytes), row.length > 0);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, SequenceTest,
    testing::Values(SequenceCase{"Ascii", "a", 1, U'a'},
                    SequenceCase{"FirstOfTwo", "\xC2\x80", 2, 0x80},
                    SequenceCase{"LastOfTwo", "\xDF\xBF", 2, 0x7FF},
                    SequenceCase{"FirstOfThree", "\xE0\xA0\x80", 3, 0x800},
                    SequenceCase{"LastBeforeSurrogates", "\xED\x9F\xBF", 3, 0xD7FF},
                    SequenceCase{"LastOfThree", "\xEF\xBF\xBF", 3, 0xFFFF},
                    SequenceCase{"FirstOfFour", "\xF0\x90\x80\x80", 4, 0x10000},
                    SequenceCase{"LastOfAll", "\xF4\x8F\xBF\xBF", 4, 0x10FFFF}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(UTF8Test, RefusesWhatIsNotWellFormed) {
  for (const std::string bytes :
       {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC2", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xE2\x82",
        "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF0\x9F\x98", "\xFF"}) {
    EXPECT_EQ(sequenceLength(bytes), 0U) << testing::PrintToString(bytes);
    EXPECT_FALSE(isValid("ok" + bytes)) << testing::PrintToString(bytes);
    EXPECT_EQ(validLength("ok" + bytes), 2U) << testing::PrintToString(bytes);
  }
  EXPECT_EQ(sequenceLength(""), 0U);
  EXPECT_TRUE(isValid(""));
}

}  // namespace
}  // namespace tulo::platform::utf8
