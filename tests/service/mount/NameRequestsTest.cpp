#include "service/mount/NameRequests.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class NameRequestsTest : public MountFixture {
 protected:
  int unlink(const std::string& name, NodeId folder = kRootNode) {
    return kernel().ask(FUSE_UNLINK, folder, nameBytes(name)).error;
  }
  int rmdir(const std::string& name, NodeId folder = kRootNode) {
    return kernel().ask(FUSE_RMDIR, folder, nameBytes(name)).error;
  }
  int move(const std::string& from, const std::string& to, unsigned flags = 0,
           NodeId newFolder = kRootNode) {
    return kernel()
        .ask(FUSE_RENAME2, kRootNode,
             bytesOf(fuse_rename2_in{newFolder.number(), flags, 0}) + nameBytes(from) +
                 nameBytes(to))
        .error;
  }
  KernelReply mknod(const std::string& name, mode_t mode) {
    return kernel().ask(FUSE_MKNOD, kRootNode,
                        bytesOf(fuse_mknod_in{mode, 0, 0, 0}) + nameBytes(name));
  }
  KernelReply symlink(const std::string& name, const std::string& target) {
    return kernel().ask(FUSE_SYMLINK, kRootNode, nameBytes(name) + nameBytes(target));
  }
};

TEST_F(NameRequestsTest, ANewFileIsMadeAndOpenInOneRequest) {
  const KernelReply reply = kernel().create(kRootNode, "new", O_WRONLY | O_EXCL, 0640);
  ASSERT_EQ(reply.error, 0);
  const auto entry = reply.as<fuse_entry_out>();
  EXPECT_EQ(entry.nodeid, named("new").number());
  EXPECT_EQ(entry.attr.mode, S_IFREG | 0640U);
  const auto open = KernelReply{0, reply.body.substr(sizeof entry)}.as<fuse_open_out>();
  EXPECT_TRUE(engine->openFiles().isOpenForWriting(named("new")));
  EXPECT_EQ(kernel().write(named("new"), "bytes").error, 0);
  kernel().release(named("new"), open.fh);
  EXPECT_FALSE(engine->openFiles().isOpen(named("new")));
}

TEST_F(NameRequestsTest, WhoeverIsTooLateToMakeAFileOpensTheOneThatIsThere) {
  makeFile("taken", "x");
  EXPECT_EQ(kernel().create(kRootNode, "taken", O_WRONLY).error, ESTALE);
  EXPECT_EQ(kernel().create(kRootNode, "taken", O_WRONLY | O_EXCL).error, EEXIST);
}

TEST_F(NameRequestsTest, AFolderIsMadeAndRemembered) {
  const std::uint64_t before = engine->folders().references();
  const KernelReply reply = kernel().mkdir(kRootNode, "Folder");
  EXPECT_EQ(reply.as<fuse_entry_out>().nodeid, named("Folder").number());
  EXPECT_EQ(engine->folders().references(), before + 1);
  EXPECT_EQ(kernel().mkdir(kRootNode, "Folder").error, EEXIST);
}

TEST_F(NameRequestsTest, FilesAreMadeWithoutOpeningThemAndNothingElseIs) {
  const auto made = mknod("file", S_IFREG | 0600).as<fuse_entry_out>();
  EXPECT_EQ(made.nodeid, named("file").number());
  EXPECT_EQ(mknod("also", 0600).error, 0);
  EXPECT_EQ(mknod("pipe", S_IFIFO | 0600).error, EPERM);
  EXPECT_EQ(mknod("device", S_IFCHR | 0600).error, EPERM);
  EXPECT_EQ(named("pipe"), kNoNode);
}

TEST_F(NameRequestsTest, ALinkKeepsItsTarget) {
  const KernelReply made = symlink("link", "some/where");
  ASSERT_EQ(made.error, 0);
  EXPECT_EQ(made.as<fuse_entry_out>().attr.mode & S_IFMT, unsigned{S_IFLNK});
  EXPECT_EQ(kernel().ask(FUSE_READLINK, named("link")).body, "some/where");
  EXPECT_EQ(kernel().ask(FUSE_READLINK, makeFile("file", "x")).error, EINVAL);
}

TEST_F(NameRequestsTest, AReadOnlyMountHasNoLinks) {
  mountReadOnly();
  EXPECT_EQ(kernel().ask(FUSE_READLINK, kRootNode).error, EINVAL);
}

TEST_F(NameRequestsTest, AFileIsRemovedAsAFileAndAFolderAsAFolder) {
  makeFile("file", "x");
  makeFolder("Folder");
  EXPECT_EQ(unlink("missing"), ENOENT);
  EXPECT_EQ(unlink("Folder"), EISDIR);
  EXPECT_EQ(rmdir("file"), ENOTDIR);
  EXPECT_EQ(unlink("file"), 0);
  EXPECT_EQ(rmdir("Folder"), 0);
  EXPECT_TRUE(names().empty());
}

TEST_F(NameRequestsTest, AFolderIsListedBeforeItIsTakenForEmpty) {
  extension->folder("d", "Folder");
  extension->file("f", "inside", "x", "d");
  list();
  EXPECT_EQ(rmdir("Folder"), ENOTEMPTY);
  EXPECT_NE(idOf("f"), kNoNode);
}

TEST_F(NameRequestsTest, AFolderThatCannotBeListedIsNotRemoved) {
  extension->folder("d", "Folder");
  list();
  extension->setListingError(unreachable());
  EXPECT_EQ(rmdir("Folder"), EHOSTDOWN);
  EXPECT_NE(named("Folder"), kNoNode);
}

TEST_F(NameRequestsTest, AFolderThatIsReplacedIsListedBefore) {
  makeFolder("new");
  extension->folder("d", "Folder");
  extension->file("f", "inside", "x", "d");
  list();
  EXPECT_EQ(move("new", "Folder"), ENOTEMPTY);
  EXPECT_NE(named("new"), kNoNode);
}

TEST_F(NameRequestsTest, ARenamedFileKeepsItsNumber) {
  const NodeId file = makeFile("before", "x");
  const NodeId folder = makeFolder("Folder");
  EXPECT_EQ(move("before", "after"), 0);
  EXPECT_EQ(named("after"), file);
  EXPECT_EQ(move("after", "inside", 0, folder), 0);
  EXPECT_EQ(named("inside", folder), file);
  EXPECT_EQ(move("missing", "x"), ENOENT);
}

TEST_F(NameRequestsTest, NamesAreExchangedOrNotReplacedIfThatIsAskedFor) {
  const NodeId one = makeFile("one", "1");
  const NodeId two = makeFile("two", "2");
  EXPECT_EQ(move("one", "two", RENAME_NOREPLACE), EEXIST);
  EXPECT_EQ(move("one", "two", RENAME_EXCHANGE), 0);
  EXPECT_EQ(named("one"), two);
  EXPECT_EQ(named("two"), one);
}

TEST_F(NameRequestsTest, WhatReplacesNothingNeedsNoListing) {
  const NodeId file = makeFile("file", "x");
  extension->folder("d", "Folder");
  list();
  const NodeId folder = named("Folder");
  extension->setListingError(unreachable());
  EXPECT_EQ(move("file", "Folder", RENAME_NOREPLACE), EEXIST);
  EXPECT_EQ(move("file", "Folder", RENAME_EXCHANGE), 0);
  EXPECT_EQ(named("file"), folder);
  EXPECT_EQ(named("Folder"), file);
}

TEST_F(NameRequestsTest, NothingGetsATooLongName) {
  const std::string name(256, 'n');
  makeFile("file", "x");
  EXPECT_EQ(kernel().create(kRootNode, name, O_WRONLY).error, ENAMETOOLONG);
  EXPECT_EQ(kernel().mkdir(kRootNode, name).error, ENAMETOOLONG);
  EXPECT_EQ(mknod(name, S_IFREG | 0600).error, ENAMETOOLONG);
  EXPECT_EQ(symlink(name, "target").error, ENAMETOOLONG);
  EXPECT_EQ(move("file", name), ENAMETOOLONG);
}

}  // namespace
}  // namespace tulo::test
