#include "service/edits/WritableFiles.h"

#include <optional>

#include "tests/service/support/FilesFixture.h"

namespace tulo::test {
namespace {

class WritableFilesTest : public FilesFixture {
 protected:
  const FileParts these = parts();
  WritableFiles all{these};
  const NodeId node = makeFile("a", "");
};

TEST_F(WritableFilesTest, AllGetTheSame) {
  EXPECT_EQ(all.find(node), nullptr);
  const auto file = all.get(node);
  EXPECT_EQ(all.get(node), file);
  EXPECT_EQ(all.find(node), file);
}

TEST_F(WritableFilesTest, WhatNobodyHasOpenIsForgotten) {
  all.get(node);
  all.released(node);
  EXPECT_EQ(all.find(node), nullptr);
  all.released(NodeId(999'999));
}

TEST_F(WritableFilesTest, WhatIsOpenStays) {
  const auto file = all.get(node);
  const auto program = openForReading(node);
  all.released(node);
  EXPECT_EQ(all.find(node), file);
}

TEST_F(WritableFilesTest, WhatIsNotInItsRowYetStays) {
  const auto file = all.get(node);
  ASSERT_EQ(file->open(), 0);
  put(*file, "x", 0);
  all.released(node);
  EXPECT_EQ(all.find(node), file);
  file->settle();
  all.released(node);
  EXPECT_EQ(all.find(node), nullptr);
}

TEST_F(WritableFilesTest, WhatSomebodyHoldsStaysUntilTheLastLetsGo) {
  std::optional<WritableFiles::Hold> one(std::in_place, all, node);
  std::optional<WritableFiles::Hold> two(std::in_place, all, node);
  EXPECT_EQ(&one->file(), &two->file());
  EXPECT_EQ(all.find(node).get(), &one->file());
  one.reset();
  all.released(node);
  EXPECT_NE(all.find(node), nullptr);
  two.reset();
  EXPECT_EQ(all.find(node), nullptr);
}

TEST_F(WritableFilesTest, ANewFileIsThereAtOnce) {
  const auto file = std::make_shared<WritableFile>(these, node);
  all.add(node, file);
  EXPECT_EQ(all.get(node), file);
}

}  // namespace
}  // namespace tulo::test
