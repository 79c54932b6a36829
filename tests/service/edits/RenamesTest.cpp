#include "service/edits/Renames.h"

#include <linux/fs.h>

#include <cerrno>

#include "tests/service/support/EditsFixture.h"

namespace tulo::test {
namespace {

using namespace platform;

class RenamesTest : public EditsFixture {};

TEST_F(RenamesTest, WhatMayNotBeDeletedIsNotReplacedEither) {
  const NodeId id = fileAllowing("a.txt", 47 & ~NSFileProviderItemCapabilitiesAllowsDeleting);
  makeFile("b.txt", "x");
  EXPECT_EQ(edits().removeFile(kRootNode, "a.txt"), EACCES);
  EXPECT_EQ(rename("b.txt", "a.txt"), EACCES);
  EXPECT_EQ(named("a.txt"), id);
  EXPECT_NE(named("b.txt"), kNoNode);
  EXPECT_FALSE(change(id));
}

TEST_F(RenamesTest, WhatMayNotBeRenamedOrMovedStaysWhereItIs) {
  fileAllowing("fixed", 47 & ~NSFileProviderItemCapabilitiesAllowsRenaming);
  fileAllowing("rooted", 47 & ~NSFileProviderItemCapabilitiesAllowsReparenting);
  const NodeId folder = folderOfHost("Docs");
  makeFile("free", "x");
  EXPECT_EQ(rename("fixed", "other"), EACCES);
  EXPECT_EQ(edits().rename(kRootNode, "rooted", folder, "rooted", 0), EACCES);
  EXPECT_EQ(rename("free", "fixed", RENAME_EXCHANGE), EACCES);
  EXPECT_EQ(edits().rename(kRootNode, "fixed", folder, "fixed", 0), 0);
  EXPECT_EQ(rename("rooted", "other"), 0);
}

TEST_F(RenamesTest, ARenameKeepsTheNumberAndTheContents) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  EXPECT_EQ(named("b.txt"), id);
  EXPECT_EQ(named("a.txt"), kNoNode);
  EXPECT_EQ(contentsOf(id), "hello");
  EXPECT_EQ(change(id)->base().place.filename, "a.txt");
  EXPECT_FALSE(change(id)->hasContents());
}

TEST_F(RenamesTest, ARenameOverAFileTakesItsPlace) {
  const NodeId old = makeFile("old", "1");
  const NodeId fresh = makeFile("fresh", "2");
  EXPECT_EQ(rename("fresh", "old"), 0);
  EXPECT_EQ(names(), (std::map<std::string, NodeId>{{"old", fresh}}));
  EXPECT_EQ(row(old)->parent, kNoNode);
}

TEST_F(RenamesTest, ARenameOverAnEmptyFolderTakesItsPlace) {
  makeFolder("old");
  const NodeId fresh = makeFolder("fresh");
  makeFile("inside", "x", fresh);
  EXPECT_EQ(rename("fresh", "old"), 0);
  EXPECT_EQ(named("old"), fresh);
  EXPECT_NE(named("inside", fresh), kNoNode);
}

TEST_F(RenamesTest, RenamingTellsWhyNot) {
  makeFile("file", "x");
  const NodeId folder = makeFolder("folder");
  const NodeId inner = makeFolder("inner", folder);
  EXPECT_EQ(rename("nothing", "x"), ENOENT);
  EXPECT_EQ(edits().rename(kRootNode, "file", NodeId(999'999), "x", 0), ENOENT);
  EXPECT_EQ(rename("file", "folder"), EISDIR);
  EXPECT_EQ(rename("folder", "file"), ENOTDIR);
  EXPECT_EQ(edits().rename(kRootNode, "folder", folder, "x", 0), EINVAL);
  EXPECT_EQ(edits().rename(kRootNode, "folder", inner, "x", 0), EINVAL);
  EXPECT_EQ(edits().rename(kRootNode, "file", kRootNode, "folder", RENAME_NOREPLACE), EEXIST);
  EXPECT_EQ(rename("file", "x", RENAME_EXCHANGE), ENOENT);
  EXPECT_EQ(rename("file", "x", RENAME_WHITEOUT), EINVAL);
  EXPECT_EQ(edits().rename(folder, "inner", kRootNode, "folder", RENAME_EXCHANGE), EINVAL);
  EXPECT_EQ(names().size(), 2U);
}

TEST_F(RenamesTest, NoReplaceRenamesToAFreeName) {
  const NodeId id = makeFile("a", "x");
  EXPECT_EQ(rename("a", "b", RENAME_NOREPLACE), 0);
  EXPECT_EQ(named("b"), id);
}

TEST_F(RenamesTest, ARenameToItselfChangesNothing) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "a.txt"), 0);
  EXPECT_FALSE(change(id));
}

TEST_F(RenamesTest, AnExchangeGivesEachTheOthersPlace) {
  const NodeId folder = makeFolder("folder");
  const NodeId one = makeFile("one", "1");
  const NodeId two = makeFile("two", "2", folder);
  EXPECT_EQ(edits().rename(kRootNode, "one", folder, "two", RENAME_EXCHANGE), 0);
  EXPECT_EQ(named("one"), two);
  EXPECT_EQ(named("two", folder), one);
  EXPECT_EQ(row(one)->parent, folder);
}

TEST_F(RenamesTest, AFileWithATemporaryNameHasNoChangeUntilItsNameIsProper) {
  const NodeId id = makeFile("a.part", "x");
  EXPECT_FALSE(change(id));
  EXPECT_EQ(rename("a.part", "a.bin"), 0);
  ASSERT_TRUE(change(id));
  EXPECT_TRUE(change(id)->hasContents());
}

TEST_F(RenamesTest, WhatIsInALocalFolderStaysHereUntilTheFolderIsProper) {
  const NodeId folder = makeFolder(".Trash-1000");
  const NodeId inner = makeFolder("files", folder);
  const NodeId leaf = makeFile("a.txt", "x", inner);
  EXPECT_FALSE(change(folder));
  EXPECT_FALSE(change(inner));
  EXPECT_FALSE(change(leaf));
  EXPECT_EQ(rename(".Trash-1000", "kept"), 0);
  EXPECT_TRUE(change(folder));
  EXPECT_TRUE(change(inner));
  EXPECT_TRUE(change(leaf));
}

TEST_F(RenamesTest, WhoeverReplacesAFileWithNewBytesSaysSoBeforeWaitingForTheDisk) {
  int waits = 0;
  options.beforeWaiting = [&waits] { ++waits; };
  reopen();
  makeFile("old", "1");
  makeFile("new", "2");
  EXPECT_EQ(rename("new", "free"), 0);
  EXPECT_EQ(waits, 0);
  EXPECT_EQ(rename("free", "old"), 0);
  EXPECT_EQ(waits, 1);
}

TEST_F(RenamesTest, ANewNameIsMeantAsItIsWritten) {
  const NodeId id = downloaded("i:1", "report/2024.pdf", "x");
  ASSERT_EQ(rename("report%2F2024.pdf", "report%2F2025.pdf"), 0);
  EXPECT_EQ(row(id)->filename, "report%2F2025.pdf");
  // Back to the one that the mount gave it: nothing was changed.
  ASSERT_EQ(rename("report%2F2025.pdf", "report%2F2024.pdf"), 0);
  EXPECT_EQ(row(id)->filename, "report/2024.pdf");
}

TEST_F(RenamesTest, WhatIsMovedWithoutANewNameKeepsTheHosts) {
  const NodeId id = downloaded("i:1", "report/2024.pdf", "x");
  const NodeId folder = folderOfHost("Docs");
  ASSERT_EQ(edits().rename(kRootNode, "report%2F2024.pdf", folder, "report%2F2024.pdf", 0), 0);
  EXPECT_EQ(row(id)->filename, "report/2024.pdf");
  pushAll();
  EXPECT_EQ(extension->find("i:1")->name, "report/2024.pdf");
  EXPECT_EQ(extension->find("i:1")->parent, "f:Docs");
}

TEST_F(RenamesTest, WhatTakesThePlaceOfASpelledOutItemTakesItsNameAtTheHost) {
  downloaded("i:1", "report/2024.pdf", "old");
  makeFile("new.pdf", "new");
  ASSERT_EQ(rename("new.pdf", "report%2F2024.pdf"), 0);
  pushAll();
  ASSERT_TRUE(extension->find("i:1"));
  EXPECT_EQ(extension->find("i:1")->name, "report/2024.pdf");
  EXPECT_EQ(extension->find("i:1")->contents, "new");
}

}  // namespace
}  // namespace tulo::test
