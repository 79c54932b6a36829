// What the tests of changes of the tree share.
#pragma once

#include <string>

#include "platform/FileProvider.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {

class EditsFixture : public WritingFixture {
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

}  // namespace tulo::test
