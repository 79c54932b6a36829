#include "service/edits/StaysLocal.h"

#include "tests/service/support/EditsFixture.h"

namespace tulo::test {
namespace {

class StaysLocalTest : public EditsFixture {
 protected:
  bool stays(NodeId folder, const std::string& name) {
    return engine->replica().read([&](ReplicaReader& reader) {
      const bool result = staysLocal(reader, LocalNames(), folder, name);
      EXPECT_EQ(staysLocal(reader, LocalNames(), *reader.node(folder), name), result);
      return result;
    });
  }
};

TEST_F(StaysLocalTest, ANameThatSaysSoStaysWhereverItIs) {
  EXPECT_TRUE(stays(kRootNode, "a.part"));
  EXPECT_TRUE(stays(folderOfHost("Docs"), "a~"));
  EXPECT_FALSE(stays(kRootNode, "a.txt"));
}

TEST_F(StaysLocalTest, WhatIsInAFolderThatStaysDoesSoHoweverDeep) {
  const NodeId trash = makeFolder(".Trash-1000");
  const NodeId inner = makeFolder("inner", makeFolder("files", trash));
  EXPECT_TRUE(stays(trash, "a.txt"));
  EXPECT_TRUE(stays(inner, "a.txt"));
  EXPECT_FALSE(stays(makeFolder("kept"), "a.txt"));
}

TEST_F(StaysLocalTest, WhatIsInAFolderOfTheHostsGoesThere) {
  const NodeId known = folderOfHost("old~");
  EXPECT_FALSE(stays(known, "a.txt"));
  EXPECT_FALSE(stays(makeFolder("below", known), "a.txt"));
}

}  // namespace
}  // namespace tulo::test
