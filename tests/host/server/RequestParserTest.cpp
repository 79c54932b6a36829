#include "host/server/RequestParser.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "host/base/HostError.h"
#include "tests/support/CaseName.h"

namespace tulo::host {
namespace {

TEST(RequestParserTest, FetchAndThumbnailNameAnItem) {
  const auto fetch =
      std::get<FetchRequest>(parseRequest(R"({"op":"fetch","account":"primary","ulid":"01X"})"));
  EXPECT_EQ(fetch.account, "primary");
  EXPECT_EQ(fetch.ulid, "01X");
  const Request thumbnail = parseRequest(R"({"ulid":"01X","op":"thumbnail","account":"42"})");
  EXPECT_EQ(std::get<ThumbnailRequest>(thumbnail).account, "42");
}

TEST(RequestParserTest, CreateWithoutParentOrPathHasNeither) {
  const auto create =
      std::get<CreateRequest>(parseRequest(R"({"op":"create","account":"primary","name":"a\/b"})"));
  EXPECT_EQ(create.name, "a/b");
  EXPECT_FALSE(create.parent);
  EXPECT_FALSE(create.path);
}

TEST(RequestParserTest, ModifyTellsNoMoveFromAMoveToTheTopLevel) {
  const auto parse = [](const std::string& more) {
    return std::get<ModifyRequest>(parseRequest(
        R"({"op":"modify","account":"primary","ulid":"01X","is_folder":false)" + more + "}"));
  };
  EXPECT_FALSE(parse("").parent.has_value());
  ASSERT_TRUE(parse(R"(,"parent":null)").parent.has_value());
  EXPECT_FALSE(parse(R"(,"parent":null)").parent->has_value());
  EXPECT_EQ(parse(R"(,"parent":"01P")").parent, std::optional(std::optional<std::string>("01P")));
}

TEST(RequestParserTest, DeleteNeedsItsKind) {
  const Request request =
      parseRequest(R"({"op":"delete","account":"primary","ulid":"01X","is_folder":true})");
  EXPECT_TRUE(std::get<DeleteRequest>(request).isFolder);
}

TEST(RequestParserTest, UnknownKeysAreIgnored) {
  EXPECT_NO_THROW(parseRequest(R"({"op":"fetch","account":"a","ulid":"u","new":[{}]})"));
}

TEST(RequestParserTest, OperationsAreNamedAsTheyAreAsked) {
  for (const std::string op : {"fetch", "thumbnail", "create", "modify", "delete", "lock", "unlock",
                               "login", "logout", "status"}) {
    const std::string text = R"({"op":")" + op +
                             R"(","account":"a","ulid":"u","name":"n","is_folder":false,)"
                             R"("path":"p","user":7})";
    EXPECT_EQ(operationName(parseRequest(text)), op);
  }
}

struct BadCase {
  std::string title;
  std::string text;
  std::string message;
};

class BadRequestTest : public testing::TestWithParam<BadCase> {};

TEST_P(BadRequestTest, IsRefusedWithAReason) {
  try {
    parseRequest(GetParam().text);
    FAIL() << "was taken for a request";
  } catch (const BadRequest& error) {
    EXPECT_EQ(std::string_view(error.what()), GetParam().message);
    EXPECT_EQ(error.kind(), "bad_request");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Wire, BadRequestTest,
    testing::Values(
        BadCase{"Empty", "", "the request is not JSON in UTF-8"},
        BadCase{"Garbage", "{\"op\":", "the request is not JSON in UTF-8"},
        BadCase{"NotUtf8", "{\"op\":\"\xFF\"}", "the request is not JSON in UTF-8"},
        BadCase{"Array", "[]", "the request is not a JSON object"},
        BadCase{"NoOperation", "{}", "the request has no \"op\""},
        BadCase{"OperationIsANumber", R"({"op":1})", "\"op\" is not a string"},
        BadCase{"UnknownOperation", R"({"op":"Fetch"})", "there is no operation \"Fetch\""},
        BadCase{"MissingKey", R"({"op":"fetch","account":"a"})",
                "the request \"fetch\" has no \"ulid\""},
        BadCase{"NullKey", R"({"op":"fetch","account":null,"ulid":"u"})",
                "the request \"fetch\" has no \"account\""},
        BadCase{"WrongType", R"({"op":"fetch","account":"a","ulid":7})",
                "the request \"fetch\" \"ulid\" is not a string"},
        BadCase{"IsFolderIsAString",
                R"({"op":"delete","account":"a","ulid":"u","is_folder":"true"})",
                "the request \"delete\" \"is_folder\" is not true or false"},
        BadCase{"ParentIsANumber",
                R"({"op":"modify","account":"a","ulid":"u","is_folder":false,"parent":0})",
                "the request \"modify\" \"parent\" is not a string"},
        BadCase{"UserIsAFraction", R"({"op":"lock","account":"a","path":"p","user":1.5})",
                "the request \"lock\" \"user\" is not an integer of 64 bits"},
        BadCase{"UserIsTooLarge",
                R"({"op":"lock","account":"a","path":"p","user":9223372036854775808})",
                "the request \"lock\" \"user\" is not an integer of 64 bits"},
        BadCase{"TooLong", std::string(maximumRequestSize + 1, ' '),
                "the request is longer than 1048576 bytes"}),
    test::CaseName());

TEST(RequestParserTest, DeepNestingIsNoTrouble) {
  const std::string deep = std::string(200'000, '[') + std::string(200'000, ']');
  EXPECT_NO_THROW(parseRequest(R"({"op":"fetch","account":"a","ulid":"u","more":)" + deep + "}"));
}

}  // namespace
}  // namespace tulo::host
