#include "service/edits/Removals.h"

#include <cerrno>

#include "tests/service/support/EditsFixture.h"

namespace tulo::test {
namespace {

class RemovalsTest : public EditsFixture {};

TEST_F(RemovalsTest, AFileThatTheHostNeverSawLeavesNothingInTheJournal) {
  const NodeId id = makeFile("a.txt", "x");
  EXPECT_EQ(edits().removeFile(kRootNode, "a.txt"), 0);
  EXPECT_FALSE(change(id));
  EXPECT_EQ(row(id)->parent, kNoNode);
}

TEST_F(RemovalsTest, AFileOfTheHostWaitsForItsDeletion) {
  const NodeId id = downloaded("i:1", "a.txt", "x");
  EXPECT_EQ(edits().removeFile(kRootNode, "a.txt"), 0);
  const Change noted = *change(id);
  EXPECT_TRUE(noted.isDeleted());
  EXPECT_EQ(noted.base().place.parent, root());
  EXPECT_EQ(noted.base().place.filename, "a.txt");
  EXPECT_EQ(noted.base().version, "1");
  EXPECT_TRUE(names().empty());
}

TEST_F(RemovalsTest, RemovingTellsWhyNot) {
  makeFile("file", "x");
  const NodeId folder = makeFolder("folder");
  makeFile("inside", "x", folder);
  EXPECT_EQ(edits().removeFile(kRootNode, "nothing"), ENOENT);
  EXPECT_EQ(edits().removeFolder(kRootNode, "nothing"), ENOENT);
  EXPECT_EQ(edits().removeFile(kRootNode, "folder"), EISDIR);
  EXPECT_EQ(edits().removeFolder(kRootNode, "file"), ENOTDIR);
  EXPECT_EQ(edits().removeFolder(kRootNode, "folder"), ENOTEMPTY);
  EXPECT_EQ(edits().removeFile(folder, "inside"), 0);
  EXPECT_EQ(edits().removeFolder(kRootNode, "folder"), 0);
  EXPECT_EQ(names().size(), 1U);
}

TEST_F(RemovalsTest, AFolderThatWasNeverListedIsNotTakenForEmpty) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "x", "f:1");
  list();
  EXPECT_EQ(edits().removeFolder(kRootNode, "Docs"), EAGAIN);
  makeFolder("other");
  EXPECT_EQ(rename("other", "Docs"), EAGAIN);
  EXPECT_EQ(refresh(idOf("f:1")), 0);
  EXPECT_EQ(edits().removeFolder(kRootNode, "Docs"), ENOTEMPTY);
  EXPECT_EQ(rename("other", "Docs"), ENOTEMPTY);
}

}  // namespace
}  // namespace tulo::test
