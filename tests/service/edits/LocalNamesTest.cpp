#include "service/edits/LocalNames.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

TEST(LocalNamesTest, TemporaryFilesAndWhatDesktopsLeaveBehindStayHere) {
  const LocalNames names;
  for (const char* name : {"a.txt~", "film.mkv.part", ".a.txt.swp", "~$report.docx", ".DS_Store",
                           "4913", "#a#", ".Trash-1000", ".fuse_hidden0001", "lu12ab.tmp"}) {
    EXPECT_TRUE(names.matches(name)) << name;
  }
}

TEST(LocalNamesTest, OrdinaryNamesDoNot) {
  const LocalNames names;
  for (const char* name : {"a.txt", ".bashrc", "part", "49134", "tmp", "a.partial", "~a", "#a"}) {
    EXPECT_FALSE(names.matches(name)) << name;
  }
}

TEST(LocalNamesTest, PatternsCanBeTheUsersOwn) {
  const LocalNames names({"*.bak", "x?"});
  EXPECT_TRUE(names.matches("a.bak"));
  EXPECT_TRUE(names.matches("xy"));
  EXPECT_FALSE(names.matches("xyz"));
  EXPECT_FALSE(names.matches("a.txt~"));
  EXPECT_FALSE(LocalNames(std::vector<std::string>()).matches("a.txt~"));
}

}  // namespace
}  // namespace tulo::test
