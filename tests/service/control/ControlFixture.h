// An engine whose operations of the control socket are called without a socket.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "service/EngineControl.h"
#include "service/control/Operations.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {

class ControlFixture : public WritingFixture {
 protected:
  ControlParts parts() { return controlPartsOf(*engine, "/mount"); }

  static control::FilesRequest files(std::vector<NodeId> nodes) { return {std::move(nodes)}; }

  static control::ChangesRequest nodes(std::vector<NodeId> named) {
    return {std::move(named), std::nullopt};
  }

  static control::ChangesRequest deleted(const std::string& name, NodeId folder = kRootNode) {
    return {std::nullopt, std::vector<control::DeletedName>{{folder, name}}};
  }

  static control::ChangesRequest everything() { return {}; }

  void refuseOnce() {
    extension->scriptMutation(
        {.error = platform::cocoaError(platform::NSFileWriteInvalidFileNameError)});
  }

  // A file of that name that the host has refused.
  NodeId refused(const std::string& name) {
    refuseOnce();
    const NodeId id = makeFile(name, "x");
    push();
    EXPECT_TRUE(change(id)->standing.isRefused());
    return id;
  }
};

}  // namespace tulo::test
