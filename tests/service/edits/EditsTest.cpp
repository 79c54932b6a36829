#include "service/edits/Edits.h"

#include <linux/fs.h>

#include <cerrno>

#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

using namespace platform;

class EditsTest : public WritingFixture {
 protected:
  Edits& edits() { return engine->edits(); }

  // A file of the host that allows nothing but what is given.
  NodeId fileAllowing(const std::string& name, std::uint64_t capabilities) {
    extension->put({.identifier = "i:" + name,
                    .parent = root(),
                    .name = name,
                    .contents = "x",
                    .capabilities = capabilities});
    list();
    return idOf("i:" + name);
  }

  NodeId folderOfHost(const std::string& name) {
    extension->folder("f:" + name, name);
    list();
    const NodeId id = idOf("f:" + name);
    EXPECT_EQ(refresh(id), 0);
    return id;
  }
};

TEST_F(EditsTest, ANewFileIsInTheTreeAndInTheJournalWhenTheCallReturns) {
  const EditResult made = edits().makeFile(kRootNode, "a.txt", 0640);
  ASSERT_EQ(made.error, 0);
  const Node node = *row(made.entry.id);
  EXPECT_EQ(made.entry.mode, node.mode);
  EXPECT_EQ(made.entry.content, node.content);
  EXPECT_EQ(made.entry.state, node.state);
  EXPECT_EQ(made.entry.capabilities, node.capabilities);
  EXPECT_EQ(made.entry.modified, node.modified);
  EXPECT_TRUE(std::filesystem::exists(engine->store().path(node.content)));
  EXPECT_EQ(node.mode & 0777, 0640);
  EXPECT_EQ(node.state, ContentState::dirty);
  EXPECT_TRUE(node.identifier.empty());
  const Change noted = *change(made.entry.id);
  EXPECT_TRUE(noted.contents);
  EXPECT_TRUE(noted.baseParent.empty());
  EXPECT_EQ(noted.due, clock + kQuiet);
}

TEST_F(EditsTest, AChangeOfAFolderChangesItsTime) {
  const NodeId folder = makeFolder("Docs");
  clock += milliseconds(5'000);
  makeFile("a.txt", "", folder);
  EXPECT_EQ(row(folder)->modified, FileTime::of(clock));
}

TEST_F(EditsTest, ANameThatIsTakenIsNotMadeAgain) {
  EXPECT_EQ(make("a.txt").error, 0);
  EXPECT_EQ(make("a.txt").error, EEXIST);
  EXPECT_EQ(edits().makeFolder(kRootNode, "a.txt").error, EEXIST);
  EXPECT_EQ(edits().makeLink(kRootNode, "a.txt", "b").error, EEXIST);
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(counts().pending, 1);
}

TEST_F(EditsTest, NothingIsMadeInAFolderThatIsGone) {
  const NodeId folder = makeFolder("Docs");
  EXPECT_EQ(edits().removeFolder(kRootNode, "Docs"), 0);
  EXPECT_EQ(make("a.txt", folder).error, ESTALE);
  EXPECT_EQ(make("a.txt", NodeId(999'999)).error, ESTALE);
}

TEST_F(EditsTest, NothingIsMadeInAFolderThatAllowsNoAdding) {
  extension->put({.identifier = "f:1",
                  .parent = root(),
                  .name = "Locked",
                  .isFolder = true,
                  .capabilities = NSFileProviderItemCapabilitiesAllowsReading});
  list();
  const NodeId folder = idOf("f:1");
  EXPECT_EQ(make("a.txt", folder).error, EACCES);
  EXPECT_EQ(edits().makeFolder(folder, "b").error, EACCES);
  makeFile("a.txt", "x");
  EXPECT_EQ(edits().rename(kRootNode, "a.txt", folder, "a.txt", 0), EACCES);
}

TEST_F(EditsTest, WhatAFolderAllowsFollowsTheHost) {
  extension->folder("f:1", "Docs");
  list();
  const NodeId folder = idOf("f:1");
  EXPECT_NE(makeFolder("before", folder), kNoNode);
  makeFile("outside", "x");
  const auto allow = [&](std::uint64_t capabilities) {
    extension->change("f:1", [&](ScriptedItem& item) {
      item.capabilities = capabilities;
      ++item.version;
    });
    list();
  };
  allow(platform::NSFileProviderItemCapabilitiesAllowsReading);
  EXPECT_EQ(make("new", folder).error, EACCES);
  EXPECT_EQ(engine->edits().makeFolder(folder, "new").error, EACCES);
  EXPECT_EQ(engine->edits().makeLink(folder, "new", "target").error, EACCES);
  EXPECT_EQ(engine->edits().rename(kRootNode, "outside", folder, "outside", 0), EACCES);
  EXPECT_EQ(engine->edits().rename(folder, "before", folder, "renamed", 0), 0);
  EXPECT_EQ(names(folder).size(), 1U);
  allow(platform::NSFileProviderItemCapabilitiesAllowsReading |
        platform::NSFileProviderItemCapabilitiesAllowsAddingSubItems);
  EXPECT_EQ(make("new", folder).error, 0);
  EXPECT_EQ(engine->edits().rename(kRootNode, "outside", folder, "outside", 0), 0);
}

TEST_F(EditsTest, ALinkStaysHereAndTellsItsTarget) {
  const EditResult made = edits().makeLink(kRootNode, "link", "some/where");
  ASSERT_EQ(made.error, 0);
  EXPECT_EQ(made.entry.size, 10);
  EXPECT_EQ(edits().readLink(made.entry.id), "some/where");
  EXPECT_FALSE(change(made.entry.id));
  const NodeId file = makeFile("a.txt", "x");
  EXPECT_FALSE(edits().readLink(file));
}

TEST_F(EditsTest, AFileThatTheHostNeverSawLeavesNothingInTheJournal) {
  const NodeId id = makeFile("a.txt", "x");
  EXPECT_EQ(edits().removeFile(kRootNode, "a.txt"), 0);
  EXPECT_FALSE(change(id));
  EXPECT_EQ(row(id)->parent, kNoNode);
}

TEST_F(EditsTest, AFileOfTheHostWaitsForItsDeletion) {
  const NodeId id = downloaded("i:1", "a.txt", "x");
  EXPECT_EQ(edits().removeFile(kRootNode, "a.txt"), 0);
  const Change noted = *change(id);
  EXPECT_TRUE(noted.deleted);
  EXPECT_EQ(noted.baseParent, root());
  EXPECT_EQ(noted.baseFilename, "a.txt");
  EXPECT_EQ(noted.baseVersion, "1");
  EXPECT_TRUE(names().empty());
}

TEST_F(EditsTest, RemovingTellsWhyNot) {
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

TEST_F(EditsTest, AFolderThatWasNeverListedIsNotTakenForEmpty) {
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

TEST_F(EditsTest, WhatMayNotBeDeletedIsNotReplacedEither) {
  const NodeId id = fileAllowing("a.txt", 47 & ~NSFileProviderItemCapabilitiesAllowsDeleting);
  makeFile("b.txt", "x");
  EXPECT_EQ(edits().removeFile(kRootNode, "a.txt"), EACCES);
  EXPECT_EQ(rename("b.txt", "a.txt"), EACCES);
  EXPECT_EQ(named("a.txt"), id);
  EXPECT_NE(named("b.txt"), kNoNode);
  EXPECT_FALSE(change(id));
}

TEST_F(EditsTest, WhatMayNotBeRenamedOrMovedStaysWhereItIs) {
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

TEST_F(EditsTest, WhatMayNotBeWrittenSaysSo) {
  const NodeId locked = fileAllowing("a", 47 & ~NSFileProviderItemCapabilitiesAllowsWriting);
  EXPECT_EQ(edits().mayWrite(locked), EACCES);
  EXPECT_EQ(edits().mayWrite(makeFile("b", "x")), 0);
  EXPECT_EQ(edits().mayWrite(makeFolder("c")), EISDIR);
  EXPECT_EQ(edits().mayWrite(edits().makeLink(kRootNode, "d", "b").entry.id), ELOOP);
  EXPECT_EQ(edits().mayWrite(NodeId(999'999)), ESTALE);
}

TEST_F(EditsTest, ARenameKeepsTheNumberAndTheContents) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  EXPECT_EQ(named("b.txt"), id);
  EXPECT_EQ(named("a.txt"), kNoNode);
  EXPECT_EQ(contentsOf(id), "hello");
  EXPECT_EQ(change(id)->baseFilename, "a.txt");
  EXPECT_FALSE(change(id)->contents);
}

TEST_F(EditsTest, ARenameOverAFileTakesItsPlace) {
  const NodeId old = makeFile("old", "1");
  const NodeId fresh = makeFile("fresh", "2");
  EXPECT_EQ(rename("fresh", "old"), 0);
  EXPECT_EQ(names(), (std::map<std::string, NodeId>{{"old", fresh}}));
  EXPECT_EQ(row(old)->parent, kNoNode);
}

TEST_F(EditsTest, ARenameOverAnEmptyFolderTakesItsPlace) {
  makeFolder("old");
  const NodeId fresh = makeFolder("fresh");
  makeFile("inside", "x", fresh);
  EXPECT_EQ(rename("fresh", "old"), 0);
  EXPECT_EQ(named("old"), fresh);
  EXPECT_NE(named("inside", fresh), kNoNode);
}

TEST_F(EditsTest, RenamingTellsWhyNot) {
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

TEST_F(EditsTest, NoReplaceRenamesToAFreeName) {
  const NodeId id = makeFile("a", "x");
  EXPECT_EQ(rename("a", "b", RENAME_NOREPLACE), 0);
  EXPECT_EQ(named("b"), id);
}

TEST_F(EditsTest, ARenameToItselfChangesNothing) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(rename("a.txt", "a.txt"), 0);
  EXPECT_FALSE(change(id));
}

TEST_F(EditsTest, AnExchangeGivesEachTheOthersPlace) {
  const NodeId folder = makeFolder("folder");
  const NodeId one = makeFile("one", "1");
  const NodeId two = makeFile("two", "2", folder);
  EXPECT_EQ(edits().rename(kRootNode, "one", folder, "two", RENAME_EXCHANGE), 0);
  EXPECT_EQ(named("one"), two);
  EXPECT_EQ(named("two", folder), one);
  EXPECT_EQ(row(one)->parent, folder);
}

TEST_F(EditsTest, AFileWithATemporaryNameHasNoChangeUntilItsNameIsProper) {
  const NodeId id = makeFile("a.part", "x");
  EXPECT_FALSE(change(id));
  EXPECT_EQ(rename("a.part", "a.bin"), 0);
  ASSERT_TRUE(change(id));
  EXPECT_TRUE(change(id)->contents);
}

TEST_F(EditsTest, WhatIsInALocalFolderStaysHereUntilTheFolderIsProper) {
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

TEST_F(EditsTest, WhatIsInAFolderOfTheHostsGoesUpWhateverItsName) {
  const NodeId folder = folderOfHost("old~");
  const NodeId below = makeFolder("below", folder);
  EXPECT_TRUE(change(below));
  EXPECT_TRUE(change(makeFile("a.txt", "x", folder)));
  EXPECT_TRUE(change(makeFile("b.txt", "x", below)));
  EXPECT_FALSE(change(makeFile("c.txt~", "x", folder)));
}

TEST_F(EditsTest, EscapedNamesAreTheHostsOwn) {
  const NodeId id = makeFile("a%2Fb", "x");
  EXPECT_EQ(row(id)->filename, "a/b");
  EXPECT_EQ(row(id)->name, "a%2Fb");
}

TEST_F(EditsTest, ModesAndTimesAreKeptHere) {
  const NodeId id = downloaded("i:1", "a.txt", "hello");
  EXPECT_EQ(edits().setMode(id, 0751), 0);
  EXPECT_EQ(engine->files().setModified(id, {.tv_sec = 1'234'567'890, .tv_nsec = 42}), 0);
  list();
  EXPECT_EQ(row(id)->mode & 0777, 0751);
  EXPECT_EQ(row(id)->modified.whole, atSecond(1'234'567'890));
  EXPECT_EQ(row(id)->modified.beyond, nanoseconds(42));
  EXPECT_FALSE(change(id));
  extension->edit("i:1", "new contents");
  list();
  EXPECT_EQ(row(id)->modified.whole, atSecond(1'700'000'000));
}

TEST_F(EditsTest, AFullDiskFailsTheChangeAsAWhole) {
  makeFile("before", "x");
  engine->replica().write(Durability::eventual,
                          [](ReplicaWriter& writer) { runSql(writer, "PRAGMA max_page_count=1"); });
  unsigned made = 0;
  int code = 0;
  try {
    for (; made < 2000; ++made)
      make("file " + std::to_string(made));
  } catch (const sqlite::DatabaseError& error) {
    code = error.code();
  }
  EXPECT_EQ(code, SQLITE_FULL);
  EXPECT_EQ(names().size(), 1U + made);
  EXPECT_EQ(counts().pending, 1 + made);
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    runSql(writer, "PRAGMA max_page_count=1000000");
  });
  EXPECT_EQ(make("after").error, 0);
}

}  // namespace
}  // namespace tulo::test
