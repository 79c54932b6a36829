#include "service/mount/SetAttributeRequests.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class SetAttributeRequestsTest : public MountFixture {
 protected:
  static fuse_setattr_in size(std::uint64_t bytes) {
    fuse_setattr_in wanted = {};
    wanted.valid = FATTR_SIZE;
    wanted.size = bytes;
    return wanted;
  }
  Kernel::Ticket begin(NodeId node, const fuse_setattr_in& wanted) {
    return kernel().send(FUSE_SETATTR, node, bytesOf(wanted));
  }
  KernelReply set(NodeId node, const fuse_setattr_in& wanted) {
    return kernel().await(begin(node, wanted));
  }
};

TEST_F(SetAttributeRequestsTest, AFileIsCutAndTheAnswerSaysSo) {
  const NodeId file = makeFile("name", "0123456789");
  EXPECT_EQ(set(file, size(4)).as<fuse_attr_out>().attr.size, 4U);
  EXPECT_EQ(contentsOf(file), "0123");
  EXPECT_EQ(row(file)->size, 4);
  EXPECT_FALSE(engine->openFiles().isOpen(file));
}

TEST_F(SetAttributeRequestsTest, WhatStaysOfAFileIsFetchedFirst) {
  extension->file("f", "name", "0123456789");
  list();
  extension->holdFetches();
  const Kernel::Ticket ticket = begin(idOf("f"), size(4));
  EXPECT_FALSE(kernel().isAnswered(ticket));
  extension->releaseFetches();
  EXPECT_EQ(kernel().await(ticket).as<fuse_attr_out>().attr.size, 4U);
  EXPECT_EQ(contentsOf(idOf("f")), "0123");
}

TEST_F(SetAttributeRequestsTest, NothingIsFetchedOfWhatIsEmptied) {
  extension->file("f", "name", "0123456789");
  list();
  EXPECT_EQ(set(idOf("f"), size(0)).as<fuse_attr_out>().attr.size, 0U);
  EXPECT_EQ(extension->fetchCount(), 0U);
}

TEST_F(SetAttributeRequestsTest, WhatCannotBeFetchedStaysAsItIs) {
  extension->file("f", "name", "0123456789");
  list();
  extension->scriptFetch({.error = unreachable()});
  EXPECT_EQ(set(idOf("f"), size(4)).error, EHOSTDOWN);
  EXPECT_EQ(row(idOf("f"))->size, 10);
}

TEST_F(SetAttributeRequestsTest, WhatMayNotBeWrittenIsNotCut) {
  const NodeId file = downloaded("f", "name", "bytes");
  extension->change("f", [](ScriptedItem& item) { item.capabilities = 1; });
  list();
  EXPECT_EQ(set(file, size(0)).error, EACCES);
  EXPECT_EQ(set(NodeId(999'999), size(0)).error, ESTALE);
}

TEST_F(SetAttributeRequestsTest, PermissionsStayHere) {
  const NodeId file = downloaded("f", "name", "bytes");
  fuse_setattr_in wanted = {};
  wanted.valid = FATTR_MODE;
  wanted.mode = S_IFREG | 0750;
  EXPECT_EQ(set(file, wanted).as<fuse_attr_out>().attr.mode & 0777U, 0750U);
  push();
  EXPECT_TRUE(sent().empty());
}

TEST_F(SetAttributeRequestsTest, ATimeIsKeptToTheNanosecond) {
  const NodeId file = makeFile("name", "x");
  fuse_setattr_in wanted = {};
  wanted.valid = FATTR_MTIME;
  wanted.mtime = 1'600'000'000;
  wanted.mtimensec = 123'456'789;
  const auto attributes = set(file, wanted).as<fuse_attr_out>().attr;
  EXPECT_EQ(attributes.mtime, 1'600'000'000U);
  EXPECT_EQ(attributes.mtimensec, 123'456'789U);
}

TEST_F(SetAttributeRequestsTest, TheTimeMayBeThatOfNow) {
  const NodeId file = makeFile("name", "x");
  const auto before = static_cast<std::uint64_t>(std::time(nullptr));
  fuse_setattr_in wanted = {};
  wanted.valid = FATTR_MTIME | FATTR_MTIME_NOW;
  wanted.mtime = 1'600'000'000;
  EXPECT_GE(set(file, wanted).as<fuse_attr_out>().attr.mtime, before);
}

TEST_F(SetAttributeRequestsTest, ATimeOfAccessIsTakenAndForgotten) {
  const NodeId file = makeFile("name", "x");
  const auto before = kernel().getattr(file).as<fuse_attr_out>().attr;
  fuse_setattr_in wanted = {};
  wanted.valid = FATTR_ATIME;
  wanted.atime = 1'600'000'000;
  const auto after = set(file, wanted).as<fuse_attr_out>().attr;
  EXPECT_EQ(after.mtime, before.mtime);
  EXPECT_EQ(after.atime, before.mtime);
}

TEST_F(SetAttributeRequestsTest, NobodyElseBecomesTheOwner) {
  const NodeId file = makeFile("name", "0123456789");
  fuse_setattr_in wanted = size(4);
  wanted.valid |= FATTR_UID;
  wanted.uid = ::getuid() + 1;
  EXPECT_EQ(set(file, wanted).error, EPERM);
  EXPECT_EQ(contentsOf(file), "0123456789") << "all or nothing";
  wanted.uid = ::getuid();
  EXPECT_EQ(set(file, wanted).error, 0);
}

}  // namespace
}  // namespace tulo::test
