#include "platform/UTType.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace tulo::platform {
namespace {

std::string identifierFor(std::string_view extension) {
  const auto type = UTType::dataTypeWithFilenameExtension(extension);
  return type ? type->identifier() : "none";
}

struct TypeCase {
  const char* extension;
  const char* identifier;
};

void PrintTo(const TypeCase& row, std::ostream* out) {
  *out << row.extension;
}

class KnownTypeTest : public testing::TestWithParam<TypeCase> {};

TEST_P(KnownTypeTest, HasItsIdentifier) {
  EXPECT_EQ(identifierFor(GetParam().extension), GetParam().identifier);
}

INSTANTIATE_TEST_SUITE_P(Extensions, KnownTypeTest,
                         testing::ValuesIn<TypeCase>({
                             {"txt", "public.plain-text"},
                             {"html", "public.html"},
                             {"htm", "public.html"},
                             {"pdf", "com.adobe.pdf"},
                             {"png", "public.png"},
                             {"jpg", "public.jpeg"},
                             {"jpeg", "public.jpeg"},
                             {"gif", "com.compuserve.gif"},
                             {"svg", "public.svg-image"},
                             {"webp", "org.webmproject.webp"},
                             {"heic", "public.heic"},
                             {"tiff", "public.tiff"},
                             {"mp3", "public.mp3"},
                             {"m4a", "com.apple.m4a-audio"},
                             {"wav", "com.microsoft.waveform-audio"},
                             {"mp4", "public.mpeg-4"},
                             {"mov", "com.apple.quicktime-movie"},
                             {"avi", "public.avi"},
                             {"zip", "public.zip-archive"},
                             {"gz", "org.gnu.gnu-zip-archive"},
                             {"tar", "public.tar-archive"},
                             {"tgz", "org.gnu.gnu-zip-tar-archive"},
                             {"json", "public.json"},
                             {"xml", "public.xml"},
                             {"csv", "public.comma-separated-values-text"},
                             {"md", "net.daringfireball.markdown"},
                             {"rtf", "public.rtf"},
                             {"css", "public.css"},
                             {"c", "public.c-source"},
                             {"h", "public.c-header"},
                             {"cpp", "public.c-plus-plus-source"},
                             {"hpp", "public.c-plus-plus-header"},
                             {"m", "public.objective-c-source"},
                             {"py", "public.python-script"},
                             {"sh", "public.shell-script"},
                             {"js", "com.netscape.javascript-source"},
                             {"doc", "com.microsoft.word.doc"},
                             {"docx", "org.openxmlformats.wordprocessingml.document"},
                             {"xlsx", "org.openxmlformats.spreadsheetml.sheet"},
                             {"pptx", "org.openxmlformats.presentationml.presentation"},
                             {"odt", "org.oasis-open.opendocument.text"},
                             {"epub", "org.idpf.epub-container"},
                             {"ttf", "public.truetype-ttf-font"},
                             {"otf", "public.opentype-font"},
                         }),
                         [](const auto& test) { return std::string(test.param.extension); });

TEST(UTTypeTest, ComparesExtensionsWithoutCase) {
  EXPECT_EQ(identifierFor("PDF"), "com.adobe.pdf");
  EXPECT_EQ(identifierFor("JpG"), "public.jpeg");
  EXPECT_EQ(identifierFor("C"), "public.c-source");
}

TEST(UTTypeTest, FallsBackToTheClassOfTheType) {
  EXPECT_EQ(identifierFor("erl"), "public.text");
  EXPECT_EQ(identifierFor("xcf"), "public.image");
}

TEST(UTTypeTest, KnowsNothingOfEmptyAndUnknownExtensions) {
  EXPECT_EQ(identifierFor(""), "none");
  EXPECT_EQ(identifierFor("unknown-to-everybody"), "none");
}

TEST(UTTypeTest, IsSafeFromExtensionsThatAreNone) {
  using std::string_view_literals::operator""sv;
  EXPECT_EQ(identifierFor("a/b.txt"), "none");
  EXPECT_EQ(identifierFor("/"), "none");
  EXPECT_EQ(identifierFor("txt\0"sv), "none");
  EXPECT_EQ(identifierFor("\xFF\xC3"), "none");
  EXPECT_EQ(identifierFor(" "), "none");
  EXPECT_EQ(identifierFor("*"), "none");
  EXPECT_EQ(identifierFor("\u00E9\U0001F600"), "none");
  EXPECT_EQ(identifierFor(std::string(100'000, 'x')), "none");
}

TEST(UTTypeTest, GivesTheSameAnswerOnManyThreads) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      for (int number = 0; number < 300; ++number) {
        EXPECT_EQ(identifierFor("none" + std::to_string(number)), "none");
        EXPECT_EQ(identifierFor("txt"), "public.plain-text");
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

TEST(UTTypeTest, IsComparedByItsIdentifier) {
  EXPECT_EQ(UTType::folder(), UTType("public.folder"));
  EXPECT_FALSE(UTType::data() == UTType::folder());
}

}  // namespace
}  // namespace tulo::platform
