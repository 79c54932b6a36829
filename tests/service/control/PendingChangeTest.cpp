#include "service/control/PendingChange.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tulo::test {
namespace {

using control::ChangeKind;
using control::ChangeState;
using control::PendingChange;
using nlohmann::json;

PendingChange full() {
  return {.path = "Docs/a.txt",
          .kind = ChangeKind::contents,
          .folder = false,
          .state = ChangeState::tryingAgain,
          .attempts = 3,
          .error = "the host cannot be reached",
          .from = "a.txt",
          .size = 42,
          .keeps = {"b~"}};
}

TEST(PendingChangeTest, TheWireTextStaysAsItIs) {
  EXPECT_EQ(json(full()).dump(),
            R"({"attempts":3,"error":"the host cannot be reached","folder":false,"from":"a.txt",)"
            R"("keeps":["b~"],"kind":"contents","path":"Docs/a.txt","size":42,)"
            R"("state":"trying again"})");
}

TEST(PendingChangeTest, WhatIsNotToBeSaidIsNotOnTheWire) {
  PendingChange change;
  change.path = "a";
  EXPECT_EQ(
      json(change).dump(),
      R"({"attempts":0,"error":"","folder":false,"kind":"name","path":"a","state":"waiting"})");
}

TEST(PendingChangeTest, AChangeComesOutAsItWentIn) {
  EXPECT_EQ(json::parse(json(full()).dump()).get<PendingChange>(), full());
}

TEST(PendingChangeTest, KindsAndStatesKeepTheirWords) {
  for (const char* text : {"delete", "new", "contents", "name"})
    EXPECT_STREQ(textOf(control::changeKindNamed(text)), text);
  for (const char* text : {"waiting", "trying again", "being written", "sending",
                           "waiting for the host", "needs attention", "local"})
    EXPECT_STREQ(textOf(control::changeStateNamed(text)), text);
}

TEST(PendingChangeTest, WordsThatNobodyKnowsMeanAPlaceThatWaits) {
  const auto change =
      json::parse(R"({"path":"a","kind":"colour","state":"asleep","x":1})").get<PendingChange>();
  EXPECT_EQ(change.kind, ChangeKind::place);
  EXPECT_EQ(change.state, ChangeState::waiting);
}

TEST(PendingChangeTest, AChangeWithoutAPathIsNone) {
  EXPECT_THROW(json::object().get<PendingChange>(), json::exception);
}

}  // namespace
}  // namespace tulo::test
