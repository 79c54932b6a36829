#include "index/Collisions.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>

#include "tests/support/CaseName.h"
#include "tests/support/CollisionsModel.h"
#include "tests/support/IndexBuilder.h"

namespace tulo {
namespace {

using test::ModelEntry;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::vector<std::string> resolve(const std::vector<std::string>& reserved,
                                 const std::vector<ModelEntry>& entries) {
  const std::vector<std::string_view> folders(reserved.begin(), reserved.end());
  std::vector<Collisions::Entry> files;
  for (const auto& [ulid, name] : entries)
    files.push_back({ulid, name});
  return Collisions::resolve(folders, files);
}

struct MarkCase {
  const char* title;
  std::string name;
  std::string expected;
  std::string ulid = "01HZX3K9QW8T4M2N6P0RABCDEF";
};

class MarkedNameTest : public testing::TestWithParam<MarkCase> {};

TEST_P(MarkedNameTest, PutsTheTagBeforeTheLastExtension) {
  EXPECT_EQ(Collisions::markedName(GetParam().name, GetParam().ulid), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Names, MarkedNameTest,
                         testing::ValuesIn<MarkCase>({
                             {"Plain", "Report.pdf", "Report (ABCDEF).pdf"},
                             {"TwoExtensions", "archive.tar.gz", "archive.tar (ABCDEF).gz"},
                             {"NoExtension", "Makefile", "Makefile (ABCDEF)"},
                             {"LeadingDot", ".profile", ".profile (ABCDEF)"},
                             {"LeadingDotAndExtension", ".config.json", ".config (ABCDEF).json"},
                             {"TrailingDot", "notes.", "notes (ABCDEF)."},
                             {"SingleDot", ".", ". (ABCDEF)"},
                             {"TwoDots", "..", ". (ABCDEF)."},
                             {"Empty", "", " (ABCDEF)"},
                             {"Space", "a b .c", "a b  (ABCDEF).c"},
                             {"DotInTheMiddleOfAPath", "a.b/c", "a (ABCDEF).b/c"},
                             {"Unicode", "\u00dcbersicht.txt", "\u00dcbersicht (ABCDEF).txt"},
                             // A dot with a combining mark is another character.
                             {"MarkedDotIsNoDot", "a.\u0301txt", "a.\u0301txt (ABCDEF)"},
                             {"MarkedDotAfterADot", "a.b.\u0301c", "a (ABCDEF).b.\u0301c"},
                             {"MarkedLeadingDotIsNoDot", ".\u0301a.b", ".\u0301a (ABCDEF).b"},
                             {"InvalidBytes", "\xff\xfe.x", "\xff\xfe (ABCDEF).x"},
                             {"TagKeepsItsCase", "a.b", "a (aBcDeF).b", "01aBcDeF"},
                             {"TagOfSixCharacters", "a.b", "a (ABCDEF).b", "ABCDEF"},
                             {"TagOfFiveCharacters", "a.b", "a (ABCDE).b", "ABCDE"},
                             {"TagOfNoCharacters", "a.b", "a ().b", ""},
                             {"TagCountsWholeCharacters", "a.b", "a (de\u0301fghi).b",
                              "abcde\u0301fghi"},
                             {"TagKeepsJoinedCharactersWhole", "a.b",
                              "a (\U0001f468\u200d\U0001f469"
                              "12345).b",
                              "00\U0001f468\u200d\U0001f469"
                              "12345"},
                             {"TagOfInvalidBytes", "a.b",
                              "a (\xff"
                              "BCDEF).b",
                              "A\xff"
                              "BCDEF"},
                         }),
                         test::CaseName());

TEST(CollisionsTest, TheTagHasSixCharacters) {
  EXPECT_EQ(Collisions::tagLength, 6U);
}

TEST(ResolveTest, NoEntriesGiveNoNames) {
  EXPECT_THAT(resolve({}, {}), IsEmpty());
  EXPECT_THAT(resolve({"Docs", "docs"}, {}), IsEmpty());
}

TEST(ResolveTest, DistinctNamesStayAsTheyAre) {
  EXPECT_THAT(resolve({"Docs"}, {{"B", "b.txt"}, {"A", "a.txt"}, {"C", ""}}),
              ElementsAre("b.txt", "a.txt", ""));
}

TEST(ResolveTest, TheSmallestUlidKeepsItsNameWhateverTheOrder) {
  const ModelEntry first{"01AAAAAA", "a.txt"};
  const ModelEntry second{"01BBBBBB", "a.txt"};
  EXPECT_THAT(resolve({}, {first, second}), ElementsAre("a.txt", "a (BBBBBB).txt"));
  EXPECT_THAT(resolve({}, {second, first}), ElementsAre("a (BBBBBB).txt", "a.txt"));
}

TEST(ResolveTest, NamesThatDifferInCaseClashAndKeepTheirSpelling) {
  EXPECT_THAT(resolve({}, {{"01AAAAAA", "Photo.JPG"}, {"01K3M9QZ", "photo.jpg"}}),
              ElementsAre("Photo.JPG", "photo (K3M9QZ).jpg"));
  EXPECT_THAT(resolve({}, {{"01K3M9QZ", "Photo.JPG"}, {"01AAAAAA", "photo.jpg"}}),
              ElementsAre("Photo (K3M9QZ).JPG", "photo.jpg"));
}

TEST(ResolveTest, AFolderReservesItsNameInEveryCase) {
  EXPECT_THAT(resolve({"Docs"}, {{"01AAAAAA", "docs"}}), ElementsAre("docs (AAAAAA)"));
  EXPECT_THAT(resolve({"Docs"}, {{"01AAAAAA", "docs"}, {"01BBBBBB", "Docs"}}),
              ElementsAre("docs (AAAAAA)", "Docs (BBBBBB)"));
}

TEST(ResolveTest, FoldersThatClashAmongThemselvesReserveOneName) {
  EXPECT_THAT(resolve({"Docs", "docs", "DOCS"}, {{"01AAAAAA", "docs"}, {"01BBBBBB", "other"}}),
              ElementsAre("docs (AAAAAA)", "other"));
}

TEST(ResolveTest, NamesWithOnlyALeadingDotAreMarkedAtTheEnd) {
  EXPECT_THAT(resolve({".profile", "."}, {{"01AAAAAA", ".profile"}, {"01BBBBBB", "."}}),
              ElementsAre(".profile (AAAAAA)", ". (BBBBBB)"));
}

TEST(ResolveTest, AShortUlidIsTheTagAsAWhole) {
  EXPECT_THAT(resolve({}, {{"1", "a"}, {"22", "a"}}), ElementsAre("a", "a (22)"));
}

TEST(ResolveTest, EqualUlidsTakeTheirTurnsInTheOrderOfTheInput) {
  EXPECT_THAT(resolve({}, {{"SAME", "a"}, {"SAME", "A"}, {"SAME", "a"}}),
              ElementsAre("a", "A (SAME)", "a (SAME)"));
}

TEST(ResolveTest, UlidsAreComparedAsBytes) {
  EXPECT_THAT(resolve({}, {{"a", "x"}, {"B", "x"}}), ElementsAre("x (a)", "x"));
  EXPECT_THAT(resolve({}, {{"10", "x"}, {"1", "x"}}), ElementsAre("x (10)", "x"));
  EXPECT_THAT(resolve({}, {{"\u00e9", "x"}, {"z", "x"}}), ElementsAre("x (\u00e9)", "x"));
}

TEST(ResolveTest, AMarkedNameIsNotCheckedAgain) {
  EXPECT_THAT(
      resolve({}, {{"01AAAAAA", "a.txt"}, {"01BBBBBB", "a.txt"}, {"01CCCCCC", "a (BBBBBB).txt"}}),
      ElementsAre("a.txt", "a (BBBBBB).txt", "a (BBBBBB).txt"));
}

TEST(ResolveTest, AMarkedNameDoesNotCountForLaterOnes) {
  EXPECT_THAT(resolve({"a"}, {{"1", "a"}, {"2", "a (1)"}}), ElementsAre("a (1)", "a (1)"));
}

TEST(ResolveTest, KeepsTheOrderAndNumberOfTheEntries) {
  EXPECT_THAT(resolve({}, {{"9", "c"}, {"1", "a"}, {"5", "b"}, {"0", "C"}}),
              ElementsAre("c (9)", "a", "b", "C"));
}

struct GroupCase {
  const char* title;
  std::string one;
  std::string other;
  bool areOneGroup;
};

class GroupTest : public testing::TestWithParam<GroupCase> {};

// The group is seen from outside: the second of two files of one group is marked.
TEST_P(GroupTest, DecidesWhichNamesClash) {
  const auto& [title, one, other, areOneGroup] = GetParam();
  const auto names = resolve({}, {{"A", one}, {"B", other}});
  EXPECT_EQ(names[0], one);
  EXPECT_EQ(names[1], areOneGroup ? Collisions::markedName(other, "B") : other);
  const auto besideAFolder = resolve({one}, {{"B", other}});
  EXPECT_EQ(besideAFolder[0], names[1]);
}

INSTANTIATE_TEST_SUITE_P(
    Names, GroupTest,
    testing::ValuesIn<GroupCase>({
        {"AsciiCase", "ABC.TXT", "abc.txt", true},
        {"AsciiNeighboursOfLetters", "a@[", "a`{", false},
        {"LatinCase", "\u00c4\u00d6\u00dc", "\u00e4\u00f6\u00fc", true},
        {"Composed", "\u00e9.txt", "e\u0301.txt", true},
        {"ComposedAndCase", "\u00c9.txt", "e\u0301.txt", true},
        {"OrderOfMarks", "a\u0323\u0307", "a\u0307\u0323", true},
        {"OtherMark", "e\u0301", "e\u0300", false},
        {"HangulSyllableAndItsLetters", "\uac00", "\u1100\u1161", true},
        {"FinalSigma", "\u039f\u0394\u039f\u03a3", "\u03bf\u03b4\u03bf\u03c2", true},
        {"SigmaThatIsNotFinal", "\u039f\u0394\u039f\u03a3", "\u03bf\u03b4\u03bf\u03c3", false},
        // The dot is passed over, and a letter follows: the sigma is not the last of its word.
        {"SigmaBeforeAnExtension", "\u0391\u03a3.txt", "\u03b1\u03c3.txt", true},
        {"SigmaBeforeAnExtensionIsNotFinal", "\u0391\u03a3.txt", "\u03b1\u03c2.txt", false},
        {"FinalSigmaBeforeANumber", "\u0391\u03a3 1", "\u03b1\u03c2 1", true},
        {"DottedCapitalI", "\u0130", "i\u0307", true},
        {"DottedCapitalIIsNotI", "\u0130", "i", false},
        {"DotlessI", "I", "\u0131", false},
        {"KelvinSign", "\u212a", "k", true},
        {"AngstromSign", "\u212b", "\u00e5", true},
        {"SharpSIsNotDoubleS", "stra\u00dfe", "STRASSE", false},
        {"CapitalSharpS", "\u1e9e", "\u00df", true},
        {"TitleCaseDigraph", "\u01c5", "\u01c6", true},
        {"CompatibilityFormsAreOtherNames", "\ufb01", "fi", false},
        {"WideLettersAreOtherNames", "\uff21", "a", false},
        {"WideLettersHaveCases", "\uff21", "\uff41", true},
        {"Deseret", "\U00010400", "\U00010428", true},
        {"AsciiBesideUnicode", "A\u00e9", "a\u00c9", true},
        {"InvalidBytesAreEqualToThemselves", "a\xff", "A\xff", true},
        {"InvalidBytesAreNoneOfEachOther", "\xff", "\xfe", false},
        {"TrailingSpaceCounts", "a", "a ", false},
    }),
    test::CaseName());

// Few letters and short names, so that most of them clash.
std::string randomName(std::mt19937& random, std::string_view letters, std::size_t longest) {
  std::string name(random() % (longest + 1), ' ');
  for (char& c : name)
    c = letters[random() % letters.size()];
  return name;
}

TEST(ResolveTest, AgreesWithAPlainModelOnRandomFolders) {
  std::mt19937 random(20260101);
  for (int round = 0; round < 2000; ++round) {
    std::vector<std::string> reserved;
    std::vector<ModelEntry> entries;
    for (auto count = random() % 4; count > 0; --count)
      reserved.push_back(randomName(random, "aB.", 3));
    for (auto count = random() % 12; count > 0; --count)
      entries.emplace_back(randomName(random, "12", 8), randomName(random, "aAbB. ", 3));
    ASSERT_EQ(resolve(reserved, entries), test::modelOfResolve(reserved, entries));
  }
}

TEST(ResolveTest, DoesNotDependOnTheOrderOfTheRows) {
  std::vector<ModelEntry> entries;
  for (int i = 0; i < 100; ++i)
    entries.emplace_back(test::ulidOf(i), "Name " + std::to_string(i % 30));
  const auto names = resolve({"name 3"}, entries);
  std::mt19937 random(1);
  for (int round = 0; round < 20; ++round) {
    std::vector<std::size_t> order(entries.size());
    for (std::size_t i = 0; i < order.size(); ++i)
      order[i] = i;
    std::ranges::shuffle(order, random);
    std::vector<ModelEntry> shuffled;
    for (const std::size_t i : order)
      shuffled.push_back(entries[i]);
    const auto shuffledNames = resolve({"name 3"}, shuffled);
    for (std::size_t i = 0; i < order.size(); ++i)
      ASSERT_EQ(shuffledNames[i], names[order[i]]);
  }
}

TEST(ResolveTest, CopesWithManyNames) {
  std::vector<ModelEntry> entries;
  for (int i = 0; i < 100'000; ++i)
    entries.emplace_back(test::ulidOf(i), "name " + std::to_string(i % 99'000));
  const auto names = resolve({}, entries);
  ASSERT_THAT(names, SizeIs(entries.size()));
  EXPECT_EQ(names[98'999], "name 98999");
  EXPECT_EQ(names[99'000], "name 0 (099000)");
}

}  // namespace
}  // namespace tulo
