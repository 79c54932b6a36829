#include "platform/URL.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace tulo::platform {
namespace {

TEST(URLTest, TakesThePathAsItStands) {
  EXPECT_EQ(URL("/a//b/../c/").path(), "/a//b/../c/");
  EXPECT_EQ(URL("").path(), "");
}

TEST(URLTest, AppendsOneComponentWithOneSlash) {
  EXPECT_EQ(URL("/a").appendingPathComponent("b").path(), "/a/b");
  EXPECT_EQ(URL("/a/").appendingPathComponent("b").path(), "/a/b");
  EXPECT_EQ(URL("/").appendingPathComponent("b").path(), "/b");
  EXPECT_EQ(URL("").appendingPathComponent("b").path(), "b");
}

TEST(URLTest, InterpretsNothingInAComponent) {
  EXPECT_EQ(URL("/a").appendingPathComponent("..").path(), "/a/..");
  EXPECT_EQ(URL("/a").appendingPathComponent("b%20c?d").path(), "/a/b%20c?d");
}

TEST(URLTest, WritesTheAbsoluteStringWithTheCharactersOfAPathAsTheyAre) {
  EXPECT_EQ(URL("/Az09-._~!$&'()*+,:=@/x").absoluteString(), "file:///Az09-._~!$&'()*+,:=@/x");
}

TEST(URLTest, PercentEncodesEverythingElse) {
  EXPECT_EQ(URL("/a b").absoluteString(), "file:///a%20b");
  EXPECT_EQ(URL("/%;?#[]\"<>\\^`{|}").absoluteString(),
            "file:///%25%3B%3F%23%5B%5D%22%3C%3E%5C%5E%60%7B%7C%7D");
  EXPECT_EQ(URL("/\u00E9\n").absoluteString(), "file:///%C3%A9%0A");
}

TEST(URLTest, PercentEncodesBytesThatAreNoText) {
  EXPECT_EQ(URL("/a\xFF").absoluteString(), "file:///a%FF");
}

TEST(URLTest, ResolvesARelativePathAgainstTheWorkingDirectory) {
  const std::string here = URL(std::filesystem::current_path().string()).absoluteString();
  EXPECT_EQ(URL("a/b").absoluteString(), here + "/a/b");
}

}  // namespace
}  // namespace tulo::platform
