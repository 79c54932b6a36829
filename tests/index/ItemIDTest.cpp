#include "index/ItemID.h"

#include <gmock/gmock.h>

#include "platform/FileProvider.h"
#include "tests/support/CaseName.h"

namespace tulo {
namespace {

using Parsed = ItemID::Parsed;

TEST(ItemIDTest, PutsThePrefixDirectlyBeforeTheUlid) {
  EXPECT_EQ(ItemID::folderPrefix, "f:");
  EXPECT_EQ(ItemID::filePrefix, "i:");
  EXPECT_EQ(ItemID::folder("ABC"), "f:ABC");
  EXPECT_EQ(ItemID::file("ABC"), "i:ABC");
  EXPECT_EQ(ItemID::folder(""), "f:");
  EXPECT_EQ(ItemID::file(""), "i:");
}

TEST(ItemIDTest, AFolderAndAFileWithTheSameUlidDiffer) {
  EXPECT_NE(ItemID::folder("ABC"), ItemID::file("ABC"));
}

struct ParseCase {
  const char* title;
  std::string identifier;
  std::optional<Parsed> expected;
};

class ItemIDParseTest : public testing::TestWithParam<ParseCase> {};

TEST_P(ItemIDParseTest, GivesUlidAndKindOrNothing) {
  EXPECT_EQ(ItemID::parse(GetParam().identifier), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Identifiers, ItemIDParseTest,
    testing::ValuesIn<ParseCase>({
        {"Folder", "f:ABC", Parsed{"ABC", true}},
        {"File", "i:ABC", Parsed{"ABC", false}},
        {"BareFolderPrefix", "f:", Parsed{"", true}},
        {"BareFilePrefix", "i:", Parsed{"", false}},
        {"OnlyTheFirstPrefixOfAFolder", "f:i:ABC", Parsed{"i:ABC", true}},
        {"OnlyTheFirstPrefixOfAFile", "i:f:ABC", Parsed{"f:ABC", false}},
        {"RepeatedFolderPrefix", "f:f:ABC", Parsed{"f:ABC", true}},
        {"TheRemainderIsNotTrimmed", "f: ABC \n", Parsed{" ABC \n", true}},
        {"TheRemainderMayHoldNul", std::string("i:A\0B", 5), Parsed{std::string("A\0B", 3), false}},
        {"TheRemainderMayBeAnyBytes", "i:\xff\xfe", Parsed{"\xff\xfe", false}},
        {"TheRemainderMayBeUnicode", "f:\u00c4\U0001f600", Parsed{"\u00c4\U0001f600", true}},
        {"CapitalFolder", "F:ABC", std::nullopt},
        {"CapitalFile", "I:ABC", std::nullopt},
        {"NoPrefix", "ABC", std::nullopt},
        {"Empty", "", std::nullopt},
        {"LetterWithoutColon", "f", std::nullopt},
        {"PrefixInTheMiddle", " f:ABC", std::nullopt},
        {"WideColon", "f\uff1aABC", std::nullopt},
        {"RootContainer", "NSFileProviderRootContainerItemIdentifier", std::nullopt},
        // The mark belongs to the colon: the second character is not a colon any more.
        {"MarkOnTheColon", "f:\u0301ABC", std::nullopt},
        {"MarkOnTheLetter", "f\u0301:ABC", std::nullopt},
    }),
    test::CaseName());

TEST(ItemIDTest, TheRootContainerIsNoItemIdentifier) {
  EXPECT_EQ(ItemID::parse(platform::NSFileProviderRootContainerItemIdentifier()), std::nullopt);
}

TEST(ItemIDTest, ParsingGivesBackWhatWasMade) {
  const std::vector<std::string> ulids = {"",       "01HZX3K9QW8T4M2N6P0RABCDEF",
                                          "f:",     "i:x",
                                          ":",      "a b",
                                          "\n",     "\r\n",
                                          "\u00e9", std::string("\0", 1),
                                          "\x80",   std::string(100'000, 'u')};
  for (const std::string& ulid : ulids) {
    EXPECT_EQ(ItemID::parse(ItemID::folder(ulid)), (Parsed{ulid, true})) << ulid;
    EXPECT_EQ(ItemID::parse(ItemID::file(ulid)), (Parsed{ulid, false})) << ulid;
  }
}

}  // namespace
}  // namespace tulo
