#include "presentation/TuloItem.h"

#include <gmock/gmock.h>

#include <limits>

#include "tests/support/CaseName.h"
#include "tests/support/SystemSide.h"

namespace tulo::test {
namespace {

using platform::UTType;

const std::string rootIdentifier = "NSFileProviderRootContainerItemIdentifier";

IndexEntry file(const std::string& displayName) {
  return {"U", "stored name", "P",        false, 1234, platform::Date(std::chrono::seconds(99)),
          5,   std::nullopt,  displayName};
}

IndexEntry folder(const std::string& displayName) {
  return {"U", "stored name", "P", true, 0, platform::Date(), 0, std::nullopt, displayName};
}

IndexEntry locked(IndexEntry entry, std::int64_t user) {
  entry.lockedByUserId = user;
  return entry;
}

IndexEntry atTheTop(IndexEntry entry) {
  entry.parentUlid.reset();
  return entry;
}

IndexEntry inTheNamelessFolder(IndexEntry entry) {
  entry.parentUlid = "";
  return entry;
}

struct ItemCase {
  const char* title;
  std::shared_ptr<const TuloItem> item;
  std::string expected;
};

class TuloItemTest : public testing::TestWithParam<ItemCase> {};

TEST_P(TuloItemTest, SaysWhatTheSystemSees) {
  EXPECT_EQ(described(*GetParam().item), GetParam().expected);
}

std::shared_ptr<const TuloItem> itemOf(IndexEntry entry) {
  return std::make_shared<const TuloItem>(std::move(entry));
}

std::shared_ptr<const TuloItem> placeholder(const std::string& identifier) {
  return std::make_shared<const TuloItem>(std::nullopt, identifier);
}

const std::string likeTheRoot =
    " in " + rootIdentifier +
    " named Tulo Hub type public.folder may 3 size none modified none uploaded version 0 / 0-";

INSTANTIATE_TEST_SUITE_P(
    Items, TuloItemTest,
    testing::ValuesIn<ItemCase>({
        {"Root", TuloItem::root(), rootIdentifier + likeTheRoot},
        {"FilePlaceholder", placeholder("i:NEW"), "i:NEW" + likeTheRoot},
        {"FolderPlaceholder", placeholder("f:NEW"), "f:NEW" + likeTheRoot},
        {"PlaceholderOfAnyIdentifier", placeholder("anything"), "anything" + likeTheRoot},
        {"Folder", itemOf(folder("Docs")),
         "f:U in f:P named Docs type public.folder may 47 size none modified none uploaded"
         " version 0 / 0-Docs"},
        {"FolderAtTheTop", itemOf(atTheTop(folder("Docs"))),
         "f:U in " + rootIdentifier +
             " named Docs type public.folder may 47 size none modified none uploaded"
             " version 0 / 0-Docs"},
        {"FolderThatLooksLikeAFile", itemOf(folder("Docs.txt")),
         "f:U in f:P named Docs.txt type public.folder may 47 size none modified none uploaded"
         " version 0 / 0-Docs.txt"},
        {"FolderIsNeverLocked", itemOf(locked(folder("Docs"), 42)),
         "f:U in f:P named Docs type public.folder may 47 size none modified none uploaded"
         " version 0 / 0-Docs"},
        {"File", itemOf(file("Docs.pdf")),
         "i:U in f:P named Docs.pdf type com.adobe.pdf may 47 size 1234 modified 99 uploaded"
         " version 5 / 5-Docs.pdf"},
        {"FileAtTheTop", itemOf(atTheTop(file("Docs.pdf"))),
         "i:U in " + rootIdentifier +
             " named Docs.pdf type com.adobe.pdf may 47 size 1234 modified 99 uploaded"
             " version 5 / 5-Docs.pdf"},
        {"FileInTheNamelessFolder", itemOf(inTheNamelessFolder(file("Docs.pdf"))),
         "i:U in f: named Docs.pdf type com.adobe.pdf may 47 size 1234 modified 99 uploaded"
         " version 5 / 5-Docs.pdf"},
        {"LockedFile", itemOf(locked(file("Docs.pdf"), 42)),
         "i:U in f:P named Docs.pdf type com.adobe.pdf may 1 size 1234 modified 99 uploaded"
         " version 5 / 5-Docs.pdf"},
        {"FileLockedByUserZero", itemOf(locked(file("Docs.pdf"), 0)),
         "i:U in f:P named Docs.pdf type com.adobe.pdf may 1 size 1234 modified 99 uploaded"
         " version 5 / 5-Docs.pdf"},
        {"FileWithoutAName", itemOf(file("")),
         "i:U in f:P named  type public.data may 47 size 1234 modified 99 uploaded"
         " version 5 / 5-"},
        {"RowUnderAnotherIdentifier",
         std::make_shared<const TuloItem>(file("Docs.pdf"), "whatever"),
         "whatever in f:P named Docs.pdf type com.adobe.pdf may 47 size 1234 modified 99 uploaded"
         " version 5 / 5-Docs.pdf"},
    }),
    CaseName());

TEST(TuloItemVersionTest, CountsVersionsInPlainDecimal) {
  for (const std::int64_t version :
       {std::int64_t{-1}, std::int64_t{0}, std::int64_t{17}, std::int64_t{1'000'000},
        std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
    IndexEntry entry = file("Report (2).pdf");
    entry.versionNumber = version;
    const auto reported = TuloItem(entry).itemVersion();
    EXPECT_EQ(reported.contentVersion, std::to_string(version));
    EXPECT_EQ(reported.metadataVersion, std::to_string(version) + "-Report (2).pdf");
  }
}

TEST(TuloItemVersionTest, ARenameChangesTheMetadataVersionOnly) {
  const auto before = TuloItem(file("a")).itemVersion();
  const auto after = TuloItem(file("a (ABCDEF)")).itemVersion();
  EXPECT_EQ(before.contentVersion, after.contentVersion);
  EXPECT_NE(before.metadataVersion, after.metadataVersion);
}

TEST(TuloItemVersionTest, SizeAndDateTakeNoPart) {
  IndexEntry changed = file("a");
  changed.size = 4321;
  changed.modified += std::chrono::seconds(1);
  changed.parentUlid = "Q";
  changed.lockedByUserId = 7;
  EXPECT_EQ(TuloItem(changed).itemVersion(), TuloItem(file("a")).itemVersion());
}

TEST(TuloItemTest, AnEmptyFileHasTheSizeZero) {
  IndexEntry empty = file("a");
  empty.size = 0;
  EXPECT_EQ(TuloItem(empty).documentSize(), 0);
}

TEST(TuloItemTest, TextThatIsNotUtf8IsCarriedAsBytes) {
  const TuloItem item(file("a\xff.bin"));
  EXPECT_EQ(item.filename(), "a\xff.bin");
  EXPECT_EQ(item.itemVersion().metadataVersion, "5-a\xff.bin");
  EXPECT_EQ(item.contentType(), UTType::data());
}

struct TypeCase {
  const char* title;
  std::string displayName;
  std::string extension;
};

class ContentTypeTest : public testing::TestWithParam<TypeCase> {};

TEST_P(ContentTypeTest, IsTheOneOfTheExtensionOrData) {
  EXPECT_EQ(TuloItem(file(GetParam().displayName)).contentType(),
            UTType::dataTypeWithFilenameExtension(GetParam().extension).value_or(UTType::data()));
}

INSTANTIATE_TEST_SUITE_P(Names, ContentTypeTest,
                         testing::ValuesIn<TypeCase>({
                             {"One", "a.pdf", "pdf"},
                             {"TheLastOfTwo", "archive.tar.gz", "gz"},
                             {"None", "Makefile", ""},
                             {"LeadingDot", ".pdf", ""},
                             {"LeadingDotAndExtension", ".config.pdf", "pdf"},
                             {"TrailingDot", "notes.", ""},
                             {"OfTheLastComponent", "a.pdf/b", ""},
                             {"Marked", "Report (ABCDEF).pdf", "pdf"},
                         }),
                         CaseName());

TEST(ContentTypeTest, WellKnownExtensionsHaveTheirTypes) {
  EXPECT_EQ(TuloItem(file("a.pdf")).contentType()->identifier(), "com.adobe.pdf");
  EXPECT_EQ(TuloItem(file("a.png")).contentType()->identifier(), "public.png");
  EXPECT_EQ(TuloItem(file("a.txt")).contentType()->identifier(), "public.plain-text");
  EXPECT_EQ(TuloItem(file("archive.tar.gz")).contentType()->identifier(),
            "org.gnu.gnu-zip-archive");
}

TEST(ContentTypeTest, FollowsTheDisplayNameAndNotTheStoredOne) {
  IndexEntry entry = file("shown.png");
  entry.name = "stored.pdf";
  EXPECT_EQ(TuloItem(entry).contentType()->identifier(), "public.png");
  EXPECT_EQ(TuloItem(entry).filename(), "shown.png");
}

}  // namespace
}  // namespace tulo::test
