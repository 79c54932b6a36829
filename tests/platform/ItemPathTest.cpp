#include "platform/ItemPath.h"

#include <gtest/gtest.h>

#include <string>

namespace tulo::platform {
namespace {

struct ItemPathCase {
  const char* name;
  std::string path;
  std::string wantFolder;
  std::string wantName;
};

void PrintTo(const ItemPathCase& row, std::ostream* os) {
  *os << row.path;
}

class ItemPathTest : public testing::TestWithParam<ItemPathCase> {};

TEST_P(ItemPathTest, TellsFolderAndName) {
  const ItemPath place = itemPath(GetParam().path);
  EXPECT_EQ(place.name, GetParam().wantName);
  EXPECT_EQ(place.folder, GetParam().wantFolder);
}

INSTANTIATE_TEST_SUITE_P(Paths, ItemPathTest,
                         testing::ValuesIn<ItemPathCase>({
                             {"Absolute", "/a/b", "/a", "b"},
                             {"DirectlyUnderTheRoot", "/a", "/", "a"},
                             {"Relative", "a", ".", "a"},
                             {"WithSlashesAtTheEnd", "/a/b//", "/a", "b"},
                             {"BeginningWithDots", "/a/..b", "/a", "..b"},
                             {"Empty", "", "", ""},
                             {"Root", "/", "", ""},
                             {"RootTwice", "//", "", ""},
                             {"WorkingDirectory", ".", "", ""},
                             {"WorkingDirectoryWithSlash", "./", "", ""},
                             {"Parent", "..", "", ""},
                             {"ParentAtTheEnd", "/tmp/..", "", ""},
                             {"ParentAndSlashAtTheEnd", "/tmp/../", "", ""},
                             {"DotAtTheEnd", "/tmp/.", "", ""},
                             {"WithNul", std::string("/a/b\0c", 6), "", ""},
                         }),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace tulo::platform
