#include "service/base/Names.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

struct Spelling {
  std::string filename;
  std::string shown;
};

class NameSpelling : public ::testing::TestWithParam<Spelling> {};

TEST_P(NameSpelling, IsShown) {
  EXPECT_EQ(names::shown(GetParam().filename), GetParam().shown);
  // A name that a folder can hold is shown as it is, whatever it looks like.
}

INSTANTIATE_TEST_SUITE_P(
    All, NameSpelling,
    ::testing::Values(Spelling{"plain.txt", "plain.txt"}, Spelling{"a/b", "a%2Fb"},
                      Spelling{std::string("a\0b", 3), "a%00b"}, Spelling{".", "%2E"},
                      Spelling{"..", "%2E%2E"}, Spelling{"...", "..."}, Spelling{"", "%~"},
                      Spelling{"100%", "100%"}, Spelling{"100% sure", "100% sure"},
                      Spelling{"a%2Fb", "a%2Fb"}, Spelling{"100%25.txt", "100%25.txt"},
                      Spelling{"%2E", "%2E"}, Spelling{"x%~y", "x%~y"}, Spelling{"%2f", "%2f"},
                      Spelling{"\xff\xfe", "\xff\xfe"}));

class ReversibleSpelling : public ::testing::TestWithParam<Spelling> {};

TEST_P(ReversibleSpelling, CanBeReadBack) {
  EXPECT_EQ(names::reversible(GetParam().filename), GetParam().shown);
  EXPECT_EQ(names::textBehind(GetParam().shown), GetParam().filename);
}

INSTANTIATE_TEST_SUITE_P(All, ReversibleSpelling,
                         ::testing::Values(Spelling{"plain", "plain"}, Spelling{"a/b", "a%2Fb"},
                                           Spelling{std::string("a\0b", 3), "a%00b"},
                                           Spelling{".", "%2E"}, Spelling{"..", "%2E%2E"},
                                           Spelling{"", "%~"}, Spelling{"100%", "100%"},
                                           Spelling{"a%2Fb", "a%252Fb"}, Spelling{"%25", "%2525"},
                                           Spelling{"%2E", "%252E"}, Spelling{"x%~y", "x%25~y"},
                                           Spelling{"%2f", "%2f"}));

TEST(Names, ASpellingThatWasCutCannotBeReadBack) {
  EXPECT_EQ(names::textBehind(names::reversible(std::string(300, 'a'))), std::nullopt);
}

TEST(Names, AreCutAtTheFolderLimitWithTheirExtension) {
  std::string longName;
  for (int i = 0; i < 100; ++i)
    longName += "\xc3\xa4x";
  longName += ".jpeg";
  const std::string shown = names::shown(longName);
  EXPECT_LE(shown.size(), names::kLongestName);
  EXPECT_GT(shown.size(), names::kLongestName - 4);
  EXPECT_TRUE(shown.ends_with(".jpeg")) << shown;
  // The character before the mark is whole.
  const std::size_t mark = shown.find("%~");
  ASSERT_NE(mark, std::string::npos);
  EXPECT_EQ(longName.substr(0, mark), shown.substr(0, mark));
  EXPECT_NE(static_cast<unsigned char>(longName[mark]) & 0xc0U, 0x80U);
}

TEST(Names, ThatDifferOnlyAfterTheCutStayDifferent) {
  const std::string front(300, 'a');
  EXPECT_NE(names::shown(front + "1"), names::shown(front + "2"));
  EXPECT_EQ(names::shown(front + "1"), names::shown(front + "1"));
}

TEST(Names, AtTheLimitAreNotCut) {
  const std::string exact(255, 'a');
  EXPECT_EQ(names::shown(exact), exact);
  EXPECT_NE(names::shown(exact + 'a'), exact + 'a');
}

TEST(Names, ATokenIsNeverCutInHalf) {
  for (std::size_t front = 225; front < 245; ++front) {
    const std::string name = std::string(front, 'a') + "/" + std::string(60, 'b');
    const std::string shown = names::shown(name);
    const std::string cut = shown.substr(0, shown.find("%~"));
    EXPECT_TRUE(cut.find('%') == std::string::npos || cut.find("%2F") != std::string::npos)
        << shown;
  }
}

TEST(Names, MarkedOnesKeepTheExtensionAndDiffer) {
  const std::string one = names::marked("report.pdf", "i:1", 0);
  const std::string other = names::marked("report.pdf", "i:2", 0);
  EXPECT_TRUE(one.starts_with("report%~")) << one;
  EXPECT_TRUE(one.ends_with(".pdf")) << one;
  EXPECT_NE(one, other);
  EXPECT_NE(one, names::marked("report.pdf", "i:1", 1));
}

}  // namespace
}  // namespace tulo::test
