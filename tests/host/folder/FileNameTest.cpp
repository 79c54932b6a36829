#include "host/folder/FileName.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "host/base/HostError.h"

namespace tulo::host {
namespace {

using std::string_literals::operator""s;

TEST(FileNameTest, OrdinaryNamesAreValid) {
  for (const std::string& name :
       {"a"s, "..."s, ".hidden"s, "a b\nc"s, "~"s, std::string(255, 'x')}) {
    EXPECT_EQ(whyInvalidName(name), "") << name;
  }
}

TEST(FileNameTest, NamesThatNoFileCanHaveAreNot) {
  for (const std::string& name :
       {""s, "."s, ".."s, "/"s, "a/b"s, "../a"s, "a\0b"s, std::string(256, 'x')}) {
    EXPECT_NE(whyInvalidName(name), "") << name;
  }
}

TEST(FileNameTest, AnInvalidNameIsRefusedForItsReason) {
  EXPECT_NO_THROW(requireValidName("a"));
  try {
    requireValidName("a/b");
    FAIL() << "was accepted";
  } catch (const OperationError& error) {
    EXPECT_EQ(error.kind(), "invalid_name");
    EXPECT_EQ(error.what(), whyInvalidName("a/b"));
  }
}

struct VariantCase {
  std::string_view name;
  unsigned number;
  std::string_view expected;
};

TEST(FileNameTest, VariantsAreNumberedBeforeTheExtension) {
  constexpr VariantCase cases[] = {
      {"Report.pdf", 1, "Report.pdf"},
      {"Report.pdf", 2, "Report~2.pdf"},
      {"Makefile", 3, "Makefile~3"},
      {".profile", 2, ".profile~2"},
      {"archive.tar.gz", 2, "archive.tar~2.gz"},
      {"notes.", 2, "notes~2."},
  };
  for (const VariantCase& each : cases) {
    EXPECT_EQ(diskNameVariant(each.name, each.number), each.expected);
  }
}

TEST(FileNameTest, LongVariantsAreShortenedBetweenCharacters) {
  std::string name;
  while (name.size() + 2 <= 250)
    name += "\u00e4";
  name += ".text";
  ASSERT_EQ(name.size(), 255U);
  const std::string variant = diskNameVariant(name, 12);
  EXPECT_LE(variant.size(), 255U);
  EXPECT_EQ(variant.substr(variant.size() - 8), "~12.text");
  EXPECT_EQ((variant.size() - 8) % 2, 0U) << "cut within a character";
}

}  // namespace
}  // namespace tulo::host
