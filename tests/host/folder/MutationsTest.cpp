#include "host/folder/Mutations.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "tests/host/HostFixture.h"
#include "tests/support/CaseName.h"
#include "tests/support/Eventually.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class HostCreateTest : public HostTest {};

TEST_F(HostCreateTest, TakesTheStagedCopyOver) {
  startHost();
  const json reply = create("a.txt", "hello");
  EXPECT_EQ(reply, (json{{"ok", true}, {"ulid", row("a.txt").ulid}}));
  EXPECT_EQ(readFile(inRoot("a.txt")), "hello");
  EXPECT_EQ(row("a.txt").size, 5);
  EXPECT_EQ(row("a.txt").version, 1);
  EXPECT_THAT(stagedCopies(), IsEmpty());
}

TEST_F(HostCreateTest, WithoutContentsMakesAFolder) {
  startHost();
  const std::string folder = createFolder("Docs")["ulid"];
  EXPECT_TRUE(fs::is_directory(inRoot("Docs")));
  create("a", "x", folder);
  EXPECT_THAT(paths(), ElementsAre("Docs/", "Docs/a"));
  EXPECT_EQ(readFile(inRoot("Docs/a")), "x");
}

TEST_F(HostCreateTest, AFolderThatIsThereIsTheAnswer) {
  makeFolder("Docs");
  startHost();
  EXPECT_EQ(createFolder("Docs")["ulid"], row("Docs").ulid);
  EXPECT_THAT(paths(), ElementsAre("Docs/"));
}

TEST_F(HostCreateTest, SoIsOneThatAnotherProgramHasJustMade) {
  startHost();
  makeFolder("Docs");
  const json reply = createFolder("Docs");
  EXPECT_EQ(reply["ulid"], row("Docs").ulid);
  EXPECT_THAT(entriesOf(root_), testing::Not(testing::Contains("Docs~2")));
}

TEST_F(HostCreateTest, AStagedTreeBecomesAFolderWithAllThatIsInIt) {
  startHost();
  const std::string path = inContainer("fp-upload/") + stagedName();
  fs::create_directories(path + "/Contents");
  writeFile(path + "/Contents/info", "i");
  writeFile(path + "/main", "m");
  fs::create_symlink("main", path + "/link");
  const json reply = ask({{"op", "create"}, {"name", "My.app"}, {"path", path}});
  EXPECT_EQ(reply["ulid"], row("My.app").ulid);
  EXPECT_THAT(paths(),
              ElementsAre("My.app/", "My.app/Contents/", "My.app/Contents/info", "My.app/main"));
  EXPECT_EQ(readFile(inRoot("My.app/Contents/info")), "i");
  EXPECT_EQ(fs::read_symlink(inRoot("My.app/link")), "main");
  EXPECT_THAT(stagedCopies(), IsEmpty());
}

TEST_F(HostCreateTest, ATakenNameIsShownAgainUnderAnotherNameOnTheDisk) {
  makeFile("a.txt", "first");
  startHost();
  const std::string second = create("a.txt", "second")["ulid"];
  const std::string third = create("a.txt", "third")["ulid"];
  EXPECT_EQ(readFile(inRoot("a.txt")), "first");
  EXPECT_EQ(readFile(inRoot("a~2.txt")), "second");
  EXPECT_EQ(readFile(inRoot("a~3.txt")), "third");
  const IndexReader index(inContainer("state.db"));
  EXPECT_THAT(index.column("SELECT name FROM items"), ElementsAre("a.txt", "a.txt", "a.txt"));
  EXPECT_EQ(readFile(ask({{"op", "fetch"}, {"ulid", second}})["path"]), "second");
  EXPECT_EQ(readFile(ask({{"op", "fetch"}, {"ulid", third}})["path"]), "third");
}

TEST_F(HostCreateTest, AFileMayBearTheNameOfAFolder) {
  makeFolder("Docs");
  startHost();
  create("Docs", "x");
  EXPECT_EQ(readFile(inRoot("Docs~2")), "x");
  const IndexReader index(inContainer("state.db"));
  EXPECT_THAT(index.column("SELECT name FROM items"), ElementsAre("Docs"));
  EXPECT_THAT(index.column("SELECT name FROM folders"), ElementsAre("Docs"));
}

TEST_F(HostCreateTest, ClashingNamesOutliveARestart) {
  startHost();
  create("a", "1");
  const std::string second = create("a", "2")["ulid"];
  stopHost();
  startHost();
  const IndexReader index(inContainer("state.db"));
  EXPECT_THAT(index.column("SELECT name FROM items"), ElementsAre("a", "a"));
  EXPECT_EQ(readFile(ask({{"op", "fetch"}, {"ulid", second}})["path"]), "2");
}

TEST_F(HostCreateTest, AnUnservedEntryInTheWayIsNotOverwritten) {
  fs::create_symlink("/nowhere", inRoot("a"));
  startHost();
  create("a", "x");
  EXPECT_EQ(fs::read_symlink(inRoot("a")), "/nowhere");
  EXPECT_EQ(readFile(inRoot("a~2")), "x");
  EXPECT_EQ(row("a").size, 1);
}

TEST_F(HostCreateTest, TheWorkingFolderNeverShowsAndItsNameIsNotLost) {
  startHost();
  create(".tulo-host", "x");
  EXPECT_THAT(paths(), ElementsAre(".tulo-host"));
  EXPECT_EQ(readFile(inRoot(".tulo-host~2")), "x");
}

TEST_F(HostCreateTest, AnUnknownParentIsNotFound) {
  startHost();
  EXPECT_EQ(kindOf(create("a", "x", "01ARYZ6S410000000000000000")), "not_found");
  const std::string file = create("f", "x")["ulid"];
  EXPECT_EQ(kindOf(create("a", "x", file)), "not_found");
  EXPECT_THAT(paths(), ElementsAre("f"));
  EXPECT_THAT(stagedCopies(), IsEmpty()) << "a copy that a request has named is the host's";
}

TEST_F(HostCreateTest, ThePermissionsOfTheCopyAreKeptButForTheSpecialBits) {
  startHost();
  const std::string path = stage("#!/bin/sh\n");
  ASSERT_EQ(::chmod(path.c_str(), 04755), 0);
  ask({{"op", "create"}, {"name", "run"}, {"path", path}});
  struct stat info;
  ASSERT_EQ(::stat(inRoot("run").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0755U);
}

struct NameCase {
  std::string title;
  std::string name;
};

class HostNameTest : public HostTest, public testing::WithParamInterface<NameCase> {};

TEST_P(HostNameTest, IsRefusedByCreateAndModify) {
  makeFile("a", "x");
  startHost();
  const std::string& name = GetParam().name;
  EXPECT_EQ(kindOf(create(name, "y")), "invalid_name");
  EXPECT_EQ(kindOf(createFolder(name)), "invalid_name");
  EXPECT_EQ(kindOf(ask({{"op", "modify"},
                        {"ulid", row("a").ulid},
                        {"is_folder", false},
                        {"name", name},
                        {"path", stage("z")}})),
            "invalid_name");
  EXPECT_THAT(paths(), ElementsAre("a"));
  EXPECT_EQ(readFile(inRoot("a")), "x");
  EXPECT_THAT(stagedCopies(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Invalid, HostNameTest,
                         testing::Values(NameCase{"Empty", ""}, NameCase{"Dot", "."},
                                         NameCase{"DotDot", ".."}, NameCase{"Slash", "x/y"},
                                         NameCase{"WayUp", "../../up"},
                                         NameCase{"Absolute", "/tmp/x"},
                                         NameCase{"Nul", std::string("x\0y", 3)},
                                         NameCase{"Long", std::string(256, 'n')}),
                         CaseName());

TEST_F(HostCreateTest, TheLongestNameIsAccepted) {
  startHost();
  const std::string name(255, 'n');
  EXPECT_EQ(create(name, "1")["ok"], true);
  EXPECT_EQ(create(name, "2")["ok"], true);
  const IndexReader index(inContainer("state.db"));
  EXPECT_THAT(index.column("SELECT name FROM items"), ElementsAre(name, name));
}

class HostModifyTest : public HostTest {
 protected:
  json modify(const std::string& path, json more) {
    const IndexRow item = row(path);
    json request{{"op", "modify"}, {"ulid", item.ulid}, {"is_folder", item.isFolder}};
    request.update(more);
    return ask(request);
  }
  const json ok{{"ok", true}};
};

TEST_F(HostModifyTest, NewContentsMakeANewVersionOfTheSameItem) {
  makeFile("a", "old");
  startHost();
  const IndexRow before = row("a");
  EXPECT_EQ(modify("a", {{"path", stage("newer")}}), ok);
  EXPECT_EQ(readFile(inRoot("a")), "newer");
  EXPECT_EQ(row("a").ulid, before.ulid);
  EXPECT_EQ(row("a").version, 2);
  EXPECT_EQ(row("a").size, 5);
  EXPECT_THAT(stagedCopies(), IsEmpty());
  EXPECT_THAT(entriesOf(inRoot(".tulo-host")), IsEmpty());
}

TEST_F(HostModifyTest, ARenameIsNoNewVersion) {
  makeFile("a", "x");
  startHost();
  const std::string ulid = row("a").ulid;
  EXPECT_EQ(modify("a", {{"name", "b"}}), ok);
  EXPECT_THAT(paths(), ElementsAre("b"));
  EXPECT_EQ(row("b").ulid, ulid);
  EXPECT_EQ(row("b").version, 1);
  EXPECT_EQ(readFile(inRoot("b")), "x");
}

TEST_F(HostModifyTest, AMoveIntoAFolderAndBackToTheTop) {
  makeFile("a", "x");
  makeFolder("d");
  startHost();
  EXPECT_EQ(modify("a", {{"parent", row("d").ulid}}), ok);
  EXPECT_THAT(paths(), ElementsAre("d/", "d/a"));
  EXPECT_EQ(modify("d/a", {{"parent", nullptr}}), ok);
  EXPECT_THAT(paths(), ElementsAre("a", "d/"));
  EXPECT_EQ(readFile(inRoot("a")), "x");
}

TEST_F(HostModifyTest, EverythingAtOnce) {
  makeFile("a", "old");
  makeFolder("d");
  startHost();
  const std::string ulid = row("a").ulid;
  EXPECT_EQ(modify("a", {{"parent", row("d").ulid}, {"name", "b"}, {"path", stage("new")}}), ok);
  EXPECT_THAT(paths(), ElementsAre("d/", "d/b"));
  EXPECT_EQ(row("d/b").ulid, ulid);
  EXPECT_EQ(row("d/b").version, 2);
  EXPECT_EQ(readFile(inRoot("d/b")), "new");
  EXPECT_FALSE(fs::exists(inRoot("a")));
}

TEST_F(HostModifyTest, NothingToChangeIsASuccess) {
  makeFile("a", "x");
  startHost();
  EXPECT_EQ(modify("a", json::object()), ok);
  EXPECT_EQ(modify("a", {{"name", "a"}, {"parent", nullptr}}), ok);
  EXPECT_THAT(paths(), ElementsAre("a"));
  EXPECT_EQ(row("a").version, 1);
}

TEST_F(HostModifyTest, ARenameToATakenNameOverwritesNothing) {
  makeFile("a", "a");
  makeFile("b", "b");
  startHost();
  EXPECT_EQ(modify("a", {{"name", "b"}}), ok);
  EXPECT_EQ(readFile(inRoot("b")), "b");
  EXPECT_EQ(readFile(inRoot("b~2")), "a");
  const IndexReader index(inContainer("state.db"));
  EXPECT_THAT(index.column("SELECT name FROM items"), ElementsAre("b", "b"));
}

TEST_F(HostModifyTest, AnItemCanBeGivenTheNameThatItHasOnTheDisk) {
  makeFile("a", "1");
  startHost();
  const std::string ulid = create("a", "2")["ulid"];
  EXPECT_EQ(ask({{"op", "modify"}, {"ulid", ulid}, {"is_folder", false}, {"name", "a~2"}}), ok);
  EXPECT_EQ(row("a~2").ulid, ulid);
  EXPECT_EQ(readFile(inRoot("a~2")), "2");
}

TEST_F(HostModifyTest, AChangeOfCaseOnlyIsARename) {
  makeFile("a", "x");
  startHost();
  EXPECT_EQ(modify("a", {{"name", "A"}}), ok);
  EXPECT_THAT(paths(), ElementsAre("A"));
}

TEST_F(HostModifyTest, AFolderMovesWithAllThatIsInIt) {
  makeFolder("from/sub");
  makeFile("from/sub/f", "x");
  makeFolder("to");
  startHost();
  const std::string file = row("from/sub/f").ulid;
  EXPECT_EQ(modify("from", {{"parent", row("to").ulid}, {"name", "new"}}), ok);
  EXPECT_THAT(paths(), ElementsAre("to/", "to/new/", "to/new/sub/", "to/new/sub/f"));
  EXPECT_EQ(row("to/new/sub/f").ulid, file);
}

TEST_F(HostModifyTest, AFolderCannotMoveIntoItself) {
  makeFolder("d/sub");
  startHost();
  EXPECT_EQ(kindOf(modify("d", {{"parent", row("d/sub").ulid}})), "bad_request");
  EXPECT_EQ(kindOf(modify("d", {{"parent", row("d").ulid}})), "bad_request");
  EXPECT_THAT(paths(), ElementsAre("d/", "d/sub/"));
}

TEST_F(HostModifyTest, TheContentsOfAPackageAreReplacedAsAWhole) {
  makeFolder("My.app");
  makeFile("My.app/keep", "old");
  makeFile("My.app/gone", "x");
  startHost();
  const std::string kept = row("My.app/keep").ulid;
  const std::string path = inContainer("fp-upload/") + stagedName();
  fs::create_directory(path);
  writeFile(path + "/keep", "newer");
  writeFile(path + "/fresh", "y");
  EXPECT_EQ(modify("My.app", {{"path", path}}), ok);
  EXPECT_THAT(paths(), ElementsAre("My.app/", "My.app/fresh", "My.app/keep"));
  EXPECT_EQ(row("My.app/keep").ulid, kept);
  EXPECT_EQ(row("My.app/keep").version, 2);
}

TEST_F(HostModifyTest, ContentsOfTheOtherKindAreRefused) {
  makeFile("a", "x");
  makeFolder("d");
  startHost();
  EXPECT_EQ(kindOf(modify("d", {{"path", stage("y")}})), "bad_request");
  const std::string tree = inContainer("fp-upload/") + stagedName();
  fs::create_directory(tree);
  EXPECT_EQ(kindOf(modify("a", {{"path", tree}})), "bad_request");
  EXPECT_EQ(readFile(inRoot("a")), "x");
}

TEST_F(HostModifyTest, TheKindInTheRequestMustFit) {
  makeFile("a", "x");
  startHost();
  const std::string ulid = row("a").ulid;
  EXPECT_EQ(kindOf(ask({{"op", "modify"}, {"ulid", ulid}, {"is_folder", true}, {"name", "b"}})),
            "not_found");
  EXPECT_EQ(kindOf(modify("a", {{"parent", "01ARYZ6S410000000000000000"}})), "not_found");
}

TEST_F(HostModifyTest, AFileStaysAsExecutableAsItWas) {
  makeFile("run", "old");
  ASSERT_EQ(::chmod(inRoot("run").c_str(), 0750), 0);
  startHost();
  modify("run", {{"path", stage("new")}});
  struct stat info;
  ASSERT_EQ(::stat(inRoot("run").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0750U);
}

TEST_F(HostModifyTest, AVersionThatTheIndexDoesNotKnowYetIsNotOverwritten) {
  makeFile("a", "old");
  startHost();
  const json request{{"path", stage("from here")}};
  makeFile("a", "from another program");
  EXPECT_EQ(kindOf(modify("a", request)), "locked");
  EXPECT_EQ(readFile(inRoot("a")), "from another program");
  // Whoever looks again finds it.
  EXPECT_EQ(row("a").version, 2);
  EXPECT_EQ(row("a").size, 20);
}

TEST_F(HostModifyTest, AVersionThatCameWhileTheCopyWasMadeIsNotOverwritten) {
  makeFile("a", "old");
  startHost();
  const json request{{"path", stage("from here")}};
  makeFile("a", "from another program");
  ASSERT_TRUE(eventually([&] { return row("a").version == 2; }));
  EXPECT_EQ(kindOf(modify("a", request)), "locked");
  EXPECT_EQ(readFile(inRoot("a")), "from another program");
}

TEST_F(HostModifyTest, WhoeverHasSeenTheOtherVersionMayReplaceIt) {
  makeFile("a", "old");
  startHost();
  makeFile("a", "from another program");
  ASSERT_TRUE(eventually([&] { return row("a").version == 2; }));
  ASSERT_TRUE(eventually([&] { return modify("a", {{"path", stage("newer")}}) == ok; }));
  EXPECT_EQ(readFile(inRoot("a")), "newer");
  EXPECT_EQ(row("a").version, 3);
}

TEST_F(HostModifyTest, ARenameOverwritesNothingAndIsDone) {
  makeFile("a", "old");
  startHost();
  makeFile("a", "from another program");
  EXPECT_EQ(modify("a", {{"name", "b"}}), ok);
  EXPECT_EQ(readFile(inRoot("b")), "from another program");
}

TEST_F(HostModifyTest, APackageInWhichSomethingIsNewIsNotReplaced) {
  makeFolder("My.app");
  startHost();
  const std::string path = inContainer("fp-upload/") + stagedName();
  fs::create_directory(path);
  makeFile("My.app/new", "precious");
  EXPECT_EQ(kindOf(modify("My.app", {{"path", path}})), "locked");
  EXPECT_EQ(readFile(inRoot("My.app/new")), "precious");
}

class HostDeleteTest : public HostTest {
 protected:
  json remove(const std::string& path) {
    const IndexRow item = row(path);
    return ask({{"op", "delete"}, {"ulid", item.ulid}, {"is_folder", item.isFolder}});
  }
};

TEST_F(HostDeleteTest, RemovesAFile) {
  makeFile("a", "x");
  makeFile("b", "x");
  startHost();
  EXPECT_EQ(remove("a"), (json{{"ok", true}}));
  EXPECT_THAT(paths(), ElementsAre("b"));
  EXPECT_FALSE(fs::exists(inRoot("a")));
}

TEST_F(HostDeleteTest, RemovesAFolderWithAllThatIsInIt) {
  makeFolder("d/e/f");
  makeFile("d/e/f/g", "x");
  const std::string outside = directory_.file("outside");
  writeFile(outside, "precious");
  fs::create_symlink(outside, inRoot("d/link"));
  startHost();
  remove("d");
  EXPECT_THAT(paths(), IsEmpty());
  EXPECT_FALSE(fs::exists(inRoot("d")));
  EXPECT_THAT(entriesOf(inRoot(".tulo-host")), IsEmpty());
  EXPECT_EQ(readFile(outside), "precious");
}

TEST_F(HostDeleteTest, WhatIsGoneOrOfTheOtherKindIsNotFound) {
  makeFile("a", "x");
  startHost();
  const std::string ulid = row("a").ulid;
  EXPECT_EQ(kindOf(ask({{"op", "delete"}, {"ulid", ulid}, {"is_folder", true}})), "not_found");
  remove("a");
  EXPECT_EQ(kindOf(ask({{"op", "delete"}, {"ulid", ulid}, {"is_folder", false}})), "not_found");
}

TEST_F(HostDeleteTest, AFileThatWasChangedMeanwhileStays) {
  makeFile("a", "old");
  startHost();
  const IndexRow item = row("a");
  makeFile("a", "from another program");
  EXPECT_EQ(kindOf(remove("a")), "locked");
  EXPECT_EQ(readFile(inRoot("a")), "from another program");
  EXPECT_EQ(row("a").version, item.version + 1);
}

TEST_F(HostDeleteTest, AFolderInWhichSomethingIsNewStays) {
  makeFolder("d/e");
  startHost();
  makeFile("d/e/new", "precious");
  EXPECT_EQ(kindOf(remove("d")), "locked");
  EXPECT_EQ(readFile(inRoot("d/e/new")), "precious");
  EXPECT_TRUE(hasRow("d/e/new"));
}

TEST_F(HostDeleteTest, WhatTheIndexGotWhileTheRequestWaitedStays) {
  makeFile("a", "old");
  host::HostOptions slow = options();
  slow.delays.push_back({"delete", std::chrono::milliseconds(3000)});
  startHost(slow);
  json reply;
  std::thread asker([&] { reply = remove("a"); });
  makeFile("a", "from another program");
  EXPECT_TRUE(eventually([&] { return row("a").version == 2; }));
  asker.join();
  EXPECT_EQ(kindOf(reply), "locked");
  EXPECT_EQ(readFile(inRoot("a")), "from another program");
}

}  // namespace
}  // namespace tulo::test
