// An engine with a file or two, for what opens, downloads and evicts contents.
#pragma once

#include <future>
#include <string>

#include "tests/service/support/EngineFixture.h"

namespace tulo::test {

class ContentsFixture : public EngineFixture {
 protected:
  using Script = ScriptedExtension::FetchScript;

  NodeId oneFile(const std::string& contents = "hello") {
    extension->file("i:1", "a.txt", contents);
    EXPECT_EQ(refresh(), 0);
    return idOf("i:1");
  }

  // An open that waits, as the mount makes one; with the errno that it ends with.
  struct Waiting {
    Contents::Ticket ticket = 0;
    std::future<int> error;
  };
  Waiting beginOpen() {
    auto answered = std::make_shared<std::promise<int>>();
    Waiting waiting;
    waiting.error = answered->get_future();
    waiting.ticket = engine->contents().beginOpen(
        [answered](const OpenAnswer& answer) { answered->set_value(answer.error); });
    return waiting;
  }
  Waiting waitForFetch(NodeId id) {
    Waiting waiting = beginOpen();
    engine->contents().proceed(waiting.ticket, id, 0, OpenStep::fetch);
    return waiting;
  }
};

}  // namespace tulo::test
