#include "platform/Text.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace tulo::platform::text {
namespace {

const std::string combiningAcute = "\u0301";
const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
const std::string flag = "\U0001F1E9\U0001F1EA";
const std::string hangulJamo = "\u1112\u1161\u11AB";

std::string encoded(char32_t codePoint) {
  const auto byte = [](char32_t value) {
    return static_cast<char>(static_cast<unsigned char>(value));
  };
  const auto tail = [&](unsigned shift) { return byte(0x80U | ((codePoint >> shift) & 0x3FU)); };
  if (codePoint < 0x80) return {byte(codePoint)};
  if (codePoint < 0x800) return {byte(0xC0U | (codePoint >> 6U)), tail(0)};
  if (codePoint < 0x10000) return {byte(0xE0U | (codePoint >> 12U)), tail(6), tail(0)};
  return {byte(0xF0U | (codePoint >> 18U)), tail(12), tail(6), tail(0)};
}

TEST(LowercasedTest, MapsTheWholeStringWithoutALocale) {
  EXPECT_EQ(lowercased(""), "");
  EXPECT_EQ(lowercased("Report (2) [Z].TXT"), "report (2) [z].txt");
  EXPECT_EQ(lowercased("\u00C4\u00D6\u00DC \u0130I"), "\u00E4\u00F6\u00FC i\u0307i");
  EXPECT_EQ(lowercased("\u039F\u0394\u039F\u03A3 \u03A3\u0391"),
            "\u03BF\u03B4\u03BF\u03C2 \u03C3\u03B1");
  EXPECT_EQ(lowercased("\u00DF\u1E9E"), "\u00DF\u00DF");
}

TEST(LowercasedTest, CarriesInvalidBytesUnchanged) {
  EXPECT_EQ(lowercased("A\xFF\u00C4\xC3"), "a\xFF\u00E4\xC3");
  EXPECT_EQ(lowercased(std::string_view("A\0B", 3)), std::string_view("a\0b", 3));
}

TEST(PrecomposedTest, GivesEqualBytesForEquivalentSpellings) {
  EXPECT_EQ(precomposed("e" + combiningAcute), "\u00E9");
  EXPECT_EQ(precomposed("\u00E9"), "\u00E9");
  EXPECT_EQ(precomposed(hangulJamo), "\uD55C");
  EXPECT_EQ(precomposed("\u212B"), "\u00C5");
  EXPECT_EQ(precomposed("q\u0307\u0323"), precomposed("q\u0323\u0307"));
  EXPECT_EQ(precomposed("plain.txt"), "plain.txt");
  EXPECT_EQ(precomposed("\uFB01"), "\uFB01");
}

TEST(PrecomposedTest, CarriesInvalidBytesUnchanged) {
  EXPECT_EQ(precomposed("\xFF"
                        "e" +
                        combiningAcute + "\xE2\x82"),
            "\xFF\u00E9\xE2\x82");
}

TEST(LengthOfPrefixTest, FindsWholeCharacters) {
  EXPECT_EQ(lengthOfPrefix("f:01ABC", "f:"), 2U);
  EXPECT_EQ(lengthOfPrefix("f:", "f:"), 2U);
  EXPECT_EQ(lengthOfPrefix("f:\u00E9", "f:"), 2U);
  EXPECT_EQ(lengthOfPrefix("f:\xFF", "f:"), 2U);
  EXPECT_EQ(lengthOfPrefix("f", "f:"), std::nullopt);
  EXPECT_EQ(lengthOfPrefix("F:1", "f:"), std::nullopt);
  EXPECT_EQ(lengthOfPrefix("", "f:"), std::nullopt);
  EXPECT_EQ(lengthOfPrefix("", ""), 0U);
  EXPECT_EQ(lengthOfPrefix("abc", ""), 0U);
}

TEST(LengthOfPrefixTest, RefusesAPrefixThatEndsInsideACharacter) {
  EXPECT_EQ(lengthOfPrefix("f:" + combiningAcute, "f:"), std::nullopt);
  EXPECT_EQ(lengthOfPrefix("f:\u200Dx", "f:"), std::nullopt);
  EXPECT_EQ(lengthOfPrefix("f:\u0903", "f:"), std::nullopt);
  EXPECT_EQ(lengthOfPrefix("\r\n", "\r"), std::nullopt);
  EXPECT_EQ(lengthOfPrefix("\n" + combiningAcute, "\n"), 1U);
}

TEST(OffsetOfLastDotTest, FindsTheLastOne) {
  EXPECT_EQ(offsetOfLastDot("a.tar.gz"), 5U);
  EXPECT_EQ(offsetOfLastDot(".profile"), 0U);
  EXPECT_EQ(offsetOfLastDot("a."), 1U);
  EXPECT_EQ(offsetOfLastDot("a"), std::nullopt);
  EXPECT_EQ(offsetOfLastDot(""), std::nullopt);
  EXPECT_EQ(offsetOfLastDot("\u00E9.\u00E9"), 2U);
  EXPECT_EQ(offsetOfLastDot("\xFF.\xFF"), 1U);
}

TEST(OffsetOfLastDotTest, PassesOverADotThatIsPartOfACharacter) {
  EXPECT_EQ(offsetOfLastDot("a.b." + combiningAcute), 1U);
  EXPECT_EQ(offsetOfLastDot("." + combiningAcute), std::nullopt);
  EXPECT_EQ(offsetOfLastDot("a.b\u0600.c"), 1U);
  EXPECT_EQ(offsetOfLastDot("\u0600.c"), std::nullopt);
}

TEST(SuffixTest, CountsCharactersFromTheEnd) {
  EXPECT_EQ(suffix("abcdef", 4), "cdef");
  EXPECT_EQ(suffix("abc", 3), "abc");
  EXPECT_EQ(suffix("abc", 9), "abc");
  EXPECT_EQ(suffix("abc", 0), "");
  EXPECT_EQ(suffix("", 2), "");
  EXPECT_EQ(suffix("a\r\nb\r\n", 2), "b\r\n");
  EXPECT_EQ(suffix("a\n\r", 1), "\r");
}

TEST(SuffixTest, TakesClustersForOneCharacter) {
  const std::string text = "x" + family + flag + flag + hangulJamo + "e" + combiningAcute;
  EXPECT_EQ(suffix(text, 1), "e" + combiningAcute);
  EXPECT_EQ(suffix(text, 2), hangulJamo + "e" + combiningAcute);
  EXPECT_EQ(suffix(text, 3), flag + hangulJamo + "e" + combiningAcute);
  EXPECT_EQ(suffix(text, 5), family + flag + flag + hangulJamo + "e" + combiningAcute);
  EXPECT_EQ(suffix(text, 6), text);
  EXPECT_EQ(suffix(text, 7), text);
}

TEST(SuffixTest, TakesEachInvalidByteForOneCharacter) {
  EXPECT_EQ(suffix("ab\xE2\x82", 3), "b\xE2\x82");
  EXPECT_EQ(suffix("\u00E9\xFF" + combiningAcute, 2), "\xFF" + combiningAcute);
}

TEST(SuffixTest, WorksOnSeveralThreads) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(suffix("a" + family + flag, 2), family + flag);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

// The short cuts beside an ASCII character decide as the full segmentation does.
TEST(CharacterBoundaryTest, IsTheSameForEveryCodePointBesideADot) {
  for (char32_t codePoint = 1; codePoint <= 0x10FFFF; ++codePoint) {
    if (codePoint >= 0xD800 && codePoint < 0xE000) continue;
    if (codePoint == U'.') continue;
    const std::string behind = "." + encoded(codePoint);
    const bool splitsBehind = suffix(behind, 1).size() < behind.size();
    ASSERT_EQ(offsetOfLastDot(behind).has_value(), splitsBehind) << std::hex << +codePoint;
    ASSERT_EQ(lengthOfPrefix(behind, ".").has_value(), splitsBehind) << std::hex << +codePoint;
    const std::string before = encoded(codePoint) + ".";
    const bool splitsBefore = suffix(before, 1).size() < before.size();
    ASSERT_EQ(offsetOfLastDot(before).has_value(), splitsBefore) << std::hex << +codePoint;
  }
}

TEST(PathExtensionTest, IsWhatFollowsTheLastDotOfTheLastComponent) {
  EXPECT_EQ(pathExtension("a.txt"), "txt");
  EXPECT_EQ(pathExtension("a.tar.gz"), "gz");
  EXPECT_EQ(pathExtension("a.b."), "");
  EXPECT_EQ(pathExtension("a"), "");
  EXPECT_EQ(pathExtension(""), "");
  EXPECT_EQ(pathExtension(".profile"), "");
  EXPECT_EQ(pathExtension(".profile.bak"), "bak");
  EXPECT_EQ(pathExtension("..a"), "a");
  EXPECT_EQ(pathExtension("."), "");
  EXPECT_EQ(pathExtension(".."), "");
}

TEST(PathExtensionTest, LooksAtTheLastComponentOnly) {
  EXPECT_EQ(pathExtension("/a.b/c"), "");
  EXPECT_EQ(pathExtension("/a.b/c.d"), "d");
  EXPECT_EQ(pathExtension("a.txt///"), "txt");
  EXPECT_EQ(pathExtension("/a/.b"), "");
  EXPECT_EQ(pathExtension("///"), "");
  EXPECT_EQ(pathExtension("a.\xFF\u00E9"), "\xFF\u00E9");
}

}  // namespace
}  // namespace tulo::platform::text
