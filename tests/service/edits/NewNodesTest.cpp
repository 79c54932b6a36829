#include "service/edits/NewNodes.h"

#include <cerrno>

#include "tests/service/support/EditsFixture.h"
#include "tests/service/support/ReplicaSql.h"

namespace tulo::test {
namespace {

using namespace platform;

class NewNodesTest : public EditsFixture {};

TEST_F(NewNodesTest, ANewFileIsInTheTreeAndInTheJournalWhenTheCallReturns) {
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
  EXPECT_TRUE(noted.hasContents());
  EXPECT_TRUE(noted.base().place.parent.empty());
  EXPECT_EQ(noted.standing.due(), clock + kQuiet);
}

TEST_F(NewNodesTest, ANameThatIsTakenIsNotMadeAgain) {
  EXPECT_EQ(make("a.txt").error, 0);
  EXPECT_EQ(make("a.txt").error, EEXIST);
  EXPECT_EQ(edits().makeFolder(kRootNode, "a.txt").error, EEXIST);
  EXPECT_EQ(edits().makeLink(kRootNode, "a.txt", "b").error, EEXIST);
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(counts().pending, 1);
}

TEST_F(NewNodesTest, NothingIsMadeInAFolderThatIsGone) {
  const NodeId folder = makeFolder("Docs");
  EXPECT_EQ(edits().removeFolder(kRootNode, "Docs"), 0);
  EXPECT_EQ(make("a.txt", folder).error, ESTALE);
  EXPECT_EQ(make("a.txt", NodeId(999'999)).error, ESTALE);
}

TEST_F(NewNodesTest, NothingIsMadeInAFolderThatAllowsNoAdding) {
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

TEST_F(NewNodesTest, WhatAFolderAllowsFollowsTheHost) {
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

TEST_F(NewNodesTest, WhatIsInAFolderOfTheHostsGoesUpWhateverItsName) {
  const NodeId folder = folderOfHost("old~");
  const NodeId below = makeFolder("below", folder);
  EXPECT_TRUE(change(below));
  EXPECT_TRUE(change(makeFile("a.txt", "x", folder)));
  EXPECT_TRUE(change(makeFile("b.txt", "x", below)));
  EXPECT_FALSE(change(makeFile("c.txt~", "x", folder)));
}

TEST_F(NewNodesTest, ANameThatLooksLikeAnEscapeIsMeantAsItIsWritten) {
  for (const char* name :
       {"a%2Fb", "report%2F2024.pdf", "a%2Eb", "100%25.txt", "100%.txt", "%~x"}) {
    const NodeId id = makeFile(name, name);
    EXPECT_EQ(row(id)->filename, name);
    EXPECT_EQ(row(id)->name, name);
  }
  pushAll();
  for (const char* name : {"a%2Fb", "report%2F2024.pdf", "a%2Eb", "100%25.txt", "100%.txt", "%~x"})
    EXPECT_EQ(hostContents(name), name);
  list();
  EXPECT_EQ(names().size(), 6U);
}

TEST_F(NewNodesTest, WhatIsSavedAnewUnderASpellingOfTheMountsOwnStaysTheHostsItem) {
  downloaded("i:1", "report/2024.pdf", "old");
  ASSERT_EQ(rename("report%2F2024.pdf", "report%2F2024.pdf~"), 0);
  makeFile("report%2F2024.pdf", "new");
  pushAll();
  ASSERT_TRUE(extension->find("i:1"));
  EXPECT_EQ(extension->find("i:1")->name, "report/2024.pdf");
  EXPECT_EQ(extension->find("i:1")->contents, "new");
}

TEST_F(NewNodesTest, AFullDiskFailsTheChangeAsAWhole) {
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
