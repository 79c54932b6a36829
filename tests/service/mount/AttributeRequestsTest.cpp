#include "service/mount/AttributeRequests.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class AttributeRequestsTest : public MountFixture {
 protected:
  KernelReply get(NodeId node, const std::string& name, std::uint32_t room = 4096) {
    return kernel().ask(FUSE_GETXATTR, node, bytesOf(fuse_getxattr_in{room, 0}) + nameBytes(name));
  }
  KernelReply names(NodeId node, std::uint32_t room = 4096) {
    return kernel().ask(FUSE_LISTXATTR, node, bytesOf(fuse_getxattr_in{room, 0}));
  }
};

TEST_F(AttributeRequestsTest, AnAttributeIsGivenAsText) {
  extension->file("f", "name", "x");
  list();
  EXPECT_EQ(get(idOf("f"), "user.tulo.identifier").body, "f");
  EXPECT_EQ(get(idOf("f"), "user.tulo.state").body, "dataless");
  EXPECT_EQ(get(idOf("f"), "user.tulo.domain").body, "test");
}

TEST_F(AttributeRequestsTest, WhatIsNotSetIsToldFromWhatCannotBe) {
  extension->file("f", "name", "x");
  list();
  EXPECT_EQ(get(idOf("f"), "user.tulo.error").error, ENODATA);
  EXPECT_EQ(get(idOf("f"), "user.comment").error, ENODATA);
  EXPECT_EQ(get(idOf("f"), "security.selinux").error, EOPNOTSUPP);
  EXPECT_EQ(get(NodeId(999'999), "user.tulo.state").error, ENODATA);
}

TEST_F(AttributeRequestsTest, WhoAsksForTheLengthIsToldThat) {
  extension->file("f", "name", "x");
  list();
  EXPECT_EQ(get(idOf("f"), "user.tulo.state", 0).as<fuse_getxattr_out>().size, 8U);
  EXPECT_EQ(get(idOf("f"), "user.tulo.state", 7).error, ERANGE);
  EXPECT_EQ(get(idOf("f"), "user.tulo.state", 8).body, "dataless");
}

TEST_F(AttributeRequestsTest, NamesEndWithAZeroEach) {
  extension->file("f", "name", "x");
  list();
  const std::string all = names(idOf("f")).body;
  ASSERT_FALSE(all.empty());
  EXPECT_EQ(all.back(), '\0');
  EXPECT_NE(all.find(std::string("user.tulo.state") + '\0'), std::string::npos);
  EXPECT_EQ(all.find("user.tulo.error"), std::string::npos);
  EXPECT_EQ(names(idOf("f"), 0).as<fuse_getxattr_out>().size, all.size());
  EXPECT_EQ(names(idOf("f"), 1).error, ERANGE);
}

TEST_F(AttributeRequestsTest, WhatIsGoneHasNoNames) {
  const KernelReply reply = names(NodeId(999'999));
  EXPECT_EQ(reply.error, 0);
  EXPECT_EQ(reply.body, "");
}

}  // namespace
}  // namespace tulo::test
