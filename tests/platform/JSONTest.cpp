#include "platform/JSON.h"

#include <gtest/gtest.h>

#include <limits>

namespace tulo::platform {
namespace {

std::string nested(std::size_t levels) {
  return R"({"a":)" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
}

TEST(JSONWritingTest, IsCompactWithEachSolidusEscaped) {
  EXPECT_EQ(JSONSerialization::data({}), "{}");
  EXPECT_EQ(JSONSerialization::data({{"path", std::string("/a/b")}}), R"({"path":"\/a\/b"})");
  EXPECT_EQ(JSONSerialization::data({{"a/b", true}}), R"({"a\/b":true})");
  EXPECT_EQ(JSONSerialization::data({{"a", nullptr}, {"b", false}, {"c", JSONContainer{}}}),
            R"({"a":null,"b":false,"c":{}})");
}

TEST(JSONWritingTest, WritesWholeNumbersWithoutAFraction) {
  EXPECT_EQ(JSONSerialization::data({{"n", 120.0}}), R"({"n":120})");
  EXPECT_EQ(JSONSerialization::data({{"n", -1.0}}), R"({"n":-1})");
  EXPECT_EQ(JSONSerialization::data({{"n", 0.5}}), R"({"n":0.5})");
  EXPECT_EQ(JSONSerialization::data({{"n", 9007199254740992.0}}), R"({"n":9007199254740992})");
}

TEST(JSONWritingTest, EscapesWhatTextMayNotHold) {
  EXPECT_EQ(JSONSerialization::data({{"t", std::string("\"\\\n\x01\0"
                                                       "\u00E9\U0001F600",
                                                       11)}}),
            "{\"t\":\"\\\"\\\\\\n\\u0001\\u0000\u00E9\U0001F600\"}");
}

TEST(JSONWritingTest, RefusesTextThatIsNotUTF8AndNumbersThatAreNotFinite) {
  EXPECT_THROW(JSONSerialization::data({{"t", std::string("a\xFF")}}), JSONSerializationError);
  EXPECT_THROW(JSONSerialization::data({{"t", std::string("\xED\xA0\x80")}}),
               JSONSerializationError);
  EXPECT_THROW(JSONSerialization::data({{"\xC3", true}}), JSONSerializationError);
  EXPECT_THROW(JSONSerialization::data({{"n", std::numeric_limits<double>::infinity()}}),
               JSONSerializationError);
  EXPECT_THROW(JSONSerialization::data({{"n", std::numeric_limits<double>::quiet_NaN()}}),
               JSONSerializationError);
}

TEST(JSONReadingTest, GivesScalarsAndStandsInForContainers) {
  const auto object = JSONSerialization::object(
      R"( {"s":"a\/\u00e9\ud83d\ude00","n":1.5,"i":-7,"b":true,"z":null,"l":[1,{"s":2}],)"
      "\"o\":{\"s\":\"in\",\"n\":3}}\r\n\t ");
  ASSERT_TRUE(object);
  const JSONObject expected = {{"s", std::string("a/\u00E9\U0001F600")},
                               {"n", 1.5},
                               {"i", -7.0},
                               {"b", true},
                               {"z", nullptr},
                               {"l", JSONContainer{}},
                               {"o", JSONContainer{}}};
  EXPECT_EQ(*object, expected);
}

TEST(JSONReadingTest, GivesNumbersAsDoubles) {
  const auto object = JSONSerialization::object(
      R"({"big":18446744073709551615,"bigger":18446744073709551616,"small":1e-400,"e":1E2})");
  ASSERT_TRUE(object);
  EXPECT_EQ(object->at("big"), JSONValue(18446744073709551615.0));
  EXPECT_EQ(object->at("bigger"), JSONValue(18446744073709551616.0));
  EXPECT_EQ(object->at("small"), JSONValue(0.0));
  EXPECT_EQ(object->at("e"), JSONValue(100.0));
}

TEST(JSONReadingTest, KeepsTheLastValueOfARepeatedKey) {
  const auto object = JSONSerialization::object(R"({"a":1,"a":{"a":2},"b":[],"b":"x"})");
  ASSERT_TRUE(object);
  EXPECT_EQ(*object, (JSONObject{{"a", JSONContainer{}}, {"b", std::string("x")}}));
}

TEST(JSONReadingTest, ReadsTheEmptyObjectAndTheEmptyKey) {
  EXPECT_EQ(JSONSerialization::object("{}"), JSONObject{});
  EXPECT_EQ(JSONSerialization::object(R"({"":""})"), (JSONObject{{"", std::string()}}));
}

struct RefusedCase {
  const char* name;
  std::string text;
};

void PrintTo(const RefusedCase& row, std::ostream* out) {
  *out << row.name;
}

class RefusedJSONTest : public testing::TestWithParam<RefusedCase> {};

TEST_P(RefusedJSONTest, GivesNothing) {
  EXPECT_EQ(JSONSerialization::object(GetParam().text), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, RefusedJSONTest,
    testing::Values(RefusedCase{"Empty", ""}, RefusedCase{"OnlyWhiteSpace", " \n"},
                    RefusedCase{"Array", "[]"}, RefusedCase{"ArrayOfObject", R"([{"a":1}])"},
                    RefusedCase{"Text", R"("a")"}, RefusedCase{"Number", "1"},
                    RefusedCase{"Null", "null"}, RefusedCase{"Truncated", R"({"a":1)"},
                    RefusedCase{"TruncatedText", R"({"a":"b)"},
                    RefusedCase{"TrailingObject", "{}{}"}, RefusedCase{"TrailingText", "{} x"},
                    RefusedCase{"TrailingNul", std::string("{}\0", 3)},
                    RefusedCase{"NulAndMore", std::string("{}\0x", 4)},
                    RefusedCase{"NulInside", std::string("{\"a\":\"\0\"}", 9)},
                    RefusedCase{"RawLineFeedInText", "{\"a\":\"\n\"}"},
                    RefusedCase{"TrailingComma", R"({"a":1,})"}, RefusedCase{"Comment", "{}//"},
                    RefusedCase{"SingleQuotes", "{'a':1}"}, RefusedCase{"BareKey", "{a:1}"},
                    RefusedCase{"NotANumber", R"({"a":NaN})"},
                    RefusedCase{"LeadingZero", R"({"a":01})"},
                    RefusedCase{"TooLargeNumber", R"({"a":1e400})"},
                    RefusedCase{"TooLargeNumberInside", R"({"a":[-1e400]})"},
                    RefusedCase{"InvalidUTF8", "{\"a\":\"\xFF\"}"},
                    RefusedCase{"InvalidUTF8Inside", "{\"a\":[\"\xC3\"]}"},
                    RefusedCase{"EncodedSurrogate", "{\"a\":\"\xED\xA0\x80\"}"},
                    RefusedCase{"LoneEscapedSurrogate", R"({"a":"\ud800"})"},
                    RefusedCase{"TooDeep", nested(513)}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(JSONReadingTest, ReadsUpToTheBoundOfDepth) {
  EXPECT_EQ(JSONSerialization::object(nested(512)), (JSONObject{{"a", JSONContainer{}}}));
}

TEST(JSONReadingTest, EndsQuicklyOnVeryDeepText) {
  EXPECT_EQ(JSONSerialization::object("{\"a\":" + std::string(10'000'000, '[')), std::nullopt);
}

TEST(JSONReadingTest, ReadsBackWhatWasWritten) {
  const JSONObject object = {{"text", std::string("\u00E9\"\\/\0\x7F", 7)},
                             {"number", 0.1},
                             {"large", 1.7976931348623157e308},
                             {"\U0001F600", nullptr}};
  EXPECT_EQ(JSONSerialization::object(JSONSerialization::data(object)), object);
}

TEST(JSONReadingTest, ReadsTextOfSeveralMegabytes) {
  const JSONObject object = {{"data", std::string(5'000'000, 'A')}};
  EXPECT_EQ(JSONSerialization::object(JSONSerialization::data(object)), object);
}

}  // namespace
}  // namespace tulo::platform
