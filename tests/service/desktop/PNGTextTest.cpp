#include "service/desktop/PNGText.h"

#include <gtest/gtest.h>

#include "tests/service/Pictures.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

using Texts = std::map<std::string, std::string>;

class PNGTextTest : public testing::Test {
 protected:
  static std::string number(std::uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
      bytes += static_cast<char>(value >> shift);
    return bytes;
  }
  static std::string chunk(const std::string& type, const std::string& data) {
    return number(static_cast<std::uint32_t>(data.size())) + type + data + "sum.";
  }
  static std::string text(const std::string& keyword, const std::string& value) {
    return chunk("tEXt", keyword + '\0' + value);
  }

  std::optional<Texts> textsOf(const std::string& chunks) {
    writeFile(path, std::string("\x89PNG\r\n\x1a\n", 8) + chunks);
    return pngTexts(path);
  }

  TemporaryDirectory directory;
  const std::string path = directory.file("a.png");
};

TEST_F(PNGTextTest, ReadsWhatStandsBeforeThePicture) {
  const auto texts = textsOf(chunk("IHDR", "header") + text("One", "1") + text("Two", "") +
                             chunk("IDAT", "pixels") + text("Three", "3") + chunk("IEND", ""));
  EXPECT_EQ(texts, (Texts{{"One", "1"}, {"Two", ""}}));
}

TEST_F(PNGTextTest, TheLastTextOfAKeywordCounts) {
  EXPECT_EQ(textsOf(text("One", "1") + text("One", "2") + chunk("IEND", "")),
            (Texts{{"One", "2"}}));
}

TEST_F(PNGTextTest, ATextWithoutAKeywordIsNone) {
  EXPECT_EQ(textsOf(chunk("tEXt", "no end") + chunk("IEND", "")), Texts{});
}

TEST_F(PNGTextTest, AnotherKindOfChunkIsPassedOver) {
  EXPECT_EQ(
      textsOf(chunk("zTXt", std::string("Packed\0x", 8)) + text("One", "1") + chunk("IEND", "")),
      (Texts{{"One", "1"}}));
}

TEST_F(PNGTextTest, AnEndlessTextIsPassedOverUnread) {
  EXPECT_EQ(textsOf(text("Long", std::string(70'000, 'x')) + text("One", "1") + chunk("IEND", "")),
            (Texts{{"One", "1"}}));
}

TEST_F(PNGTextTest, AFileThatStopsBeforeItsPictureIsDamaged) {
  EXPECT_EQ(textsOf(text("One", "1")), std::nullopt);
  EXPECT_EQ(textsOf(text("One", "1") + number(100) + "tEXtshort"), std::nullopt);
  EXPECT_EQ(textsOf("ab"), std::nullopt);
}

TEST_F(PNGTextTest, AnotherKindOfFileHasNone) {
  writeFile(path, "GIF89a and more of it");
  EXPECT_EQ(pngTexts(path), std::nullopt);
  EXPECT_EQ(pngTexts(directory.file("missing")), std::nullopt);
}

TEST_F(PNGTextTest, APictureThatIsCutHasNone) {
  writeFile(path, picture(10, 10).substr(0, 20));
  EXPECT_EQ(pngTexts(path), std::nullopt);
}

TEST_F(PNGTextTest, GivesNothingForALengthBeyondTheFile) {
  writeFile(path, std::string("\x89PNG\r\n\x1a\n\0\0\xff\xfftEXtKey\0text", 24));
  EXPECT_EQ(pngTexts(path), std::nullopt);
}

}  // namespace
}  // namespace tulo::test
