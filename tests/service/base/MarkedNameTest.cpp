#include "service/base/MarkedName.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

std::string repeated(const std::string& text, std::size_t count) {
  std::string result;
  for (std::size_t i = 0; i < count; ++i)
    result += text;
  return result;
}

TEST(MarkedNameTest, TheMarkStandsBeforeTheExtension) {
  EXPECT_EQ(markedName("a.txt", " (2)"), "a (2).txt");
  EXPECT_EQ(markedName("archive.tar.gz", " (2)"), "archive.tar (2).gz");
  EXPECT_EQ(markedName(".profile", " (2)"), ".profile (2)");
  EXPECT_EQ(markedName("README", " (2)"), "README (2)");
}

TEST(MarkedNameTest, ALongNameLosesItsFrontOnly) {
  EXPECT_EQ(markedName(std::string(251, 'n') + ".txt", " (2)"), std::string(247, 'n') + " (2).txt");
  EXPECT_EQ(markedName(std::string(255, 'n'), " (2)"), std::string(251, 'n') + " (2)");
}

TEST(MarkedNameTest, WhatIsLongBehindADotIsNoExtension) {
  const std::string name = markedName("a." + std::string(253, 'x'), " (2)");
  EXPECT_EQ(name, "a." + std::string(249, 'x') + " (2)");
}

TEST(MarkedNameTest, NoCharacterIsCutInTwo) {
  for (const std::string character : {"\u00e4", "\u20ac", "\U0001f600"}) {
    const std::string all = repeated(character, 100);
    for (std::size_t limit = 0; limit < 30; ++limit)
      EXPECT_EQ(cutName(all, limit).size(), limit / character.size() * character.size());
  }
}

TEST(MarkedNameTest, WhatBelongsToACharacterStaysWithIt) {
  // An "a" with a ring and a stroke, as three code points.
  const std::string letter = "a\u030a\u0335";
  EXPECT_EQ(cutName(repeated(letter, 9), letter.size() * 2 + 3), repeated(letter, 2));
  const std::string family = "\U0001f469\u200d\U0001f467";
  EXPECT_EQ(cutName("x" + repeated(family, 9), family.size()), "x");
  EXPECT_EQ(cutName("x" + repeated(family, 9), family.size() + 1), "x" + family);
}

TEST(MarkedNameTest, BytesThatAreNotUtf8CountOne) {
  EXPECT_EQ(cutName(std::string(300, '\xff'), 255).size(), 255U);
}

TEST(MarkedNameTest, ANameThatWasMarkedTooLongIsWhatItWouldHaveBeen) {
  const std::string mark = " (conflicted copy of my.host, 2026-11-22)";
  for (const char* extension : {".txt", "", ".tar.gz"}) {
    const std::string former = std::string(240, 'n') + extension;
    const std::size_t dot = former.rfind('.');
    std::string marked = former;
    marked.insert(dot == std::string::npos ? former.size() : dot, mark);
    EXPECT_EQ(cutMarkedName(marked, ""), markedName(former, mark)) << extension;
    EXPECT_EQ(cutMarkedName(marked, " (2)"), markedName(former, mark + " (2)")) << extension;
  }
}

TEST(MarkedNameTest, ANameWithoutAMarkIsCutAsItIs) {
  EXPECT_EQ(cutMarkedName(std::string(300, 'n') + ".txt", ""), std::string(251, 'n') + ".txt");
  const std::string bracket = "a (b) " + std::string(300, 'n');
  EXPECT_EQ(cutMarkedName(bracket, ""), bracket.substr(0, 255));
  EXPECT_EQ(cutMarkedName(" (" + std::string(300, 'n') + ")", "").size(), 255U);
}

}  // namespace
}  // namespace tulo::test
