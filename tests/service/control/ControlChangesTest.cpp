// What the user may ask of changes: over the control socket's requests, and with a program that
// waits for the host's word.

#include <gtest/gtest.h>

#include <cerrno>
#include <nlohmann/json.hpp>

#include "service/EngineParts.h"
#include "service/control/ServiceControl.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

using nlohmann::json;
using platform::cocoaError;
using platform::fileProviderError;
using platform::NSFileProviderErrorCode;

class ControlChangesTest : public WritingFixture {
 protected:
  // The last line of the answer.
  json ask(const std::string& request) {
    json last;
    answerControl(controlPartsOf(*engine, "/mount"), request, [&last](const std::string& line) {
      last = json::parse(line);
      return true;
    });
    return last;
  }

  json ask(const json& request) { return ask(request.dump()); }

  void refuseOnce() {
    extension->scriptMutation({.error = cocoaError(platform::NSFileWriteInvalidFileNameError)});
  }

  // What a program is told that waits for the host; -1 while it does.
  struct Program {
    int told = -1;
    Verdicts::Ticket ticket = 0;
  };

  void await(Program& program, NodeId node, milliseconds patience = milliseconds(5000)) {
    program.ticket =
        engine->uploader().verdicts().begin([&program](int error) { program.told = error; });
    engine->uploader().awaitVerdict(program.ticket, {node}, patience);
  }
};

TEST_F(ControlChangesTest, FlushSendsBeforeTheQuietTimeIsOver) {
  makeFile("a.txt", "hello");
  EXPECT_EQ(drain(), 0U);
  const json answer = ask(json{{"op", "flush"}});
  EXPECT_TRUE(answer["ok"]);
  EXPECT_EQ(answer["pending"], 1);
  EXPECT_EQ(answer["changes"][0]["path"], "a.txt");
  drain();
  EXPECT_EQ(hostContents("a.txt"), "hello");
  EXPECT_EQ(ask(json{{"op", "flush"}})["pending"], 0);
}

TEST_F(ControlChangesTest, FlushOfAFolderLeavesTheOthers) {
  const NodeId folder = makeFolder("Docs");
  makeFile("inside", "x", folder);
  makeFile("beside", "x");
  const json answer = ask(json{{"op", "flush"}, {"nodes", {folder}}});
  EXPECT_EQ(answer["pending"], 2);
  drain();
  EXPECT_EQ(sentNames(), (std::vector<std::string>{"Docs", "inside"}));
}

TEST_F(ControlChangesTest, FlushWaitsNoLongerThanItMay) {
  makeFile("a.txt", "hello");
  // Nobody sends in this test.
  const json answer = ask(json{{"op", "flush"}, {"wait", true}, {"timeout", 1}});
  EXPECT_EQ(answer["pending"], 1);
  EXPECT_TRUE(answer["hostPresent"]);
}

TEST_F(ControlChangesTest, FlushEndsWhenNobodyListens) {
  makeFile("a.txt", "hello");
  int lines = 0;
  answerControl(controlPartsOf(*engine, "/mount"), R"({"op":"flush","wait":true})",
                [&lines](const std::string&) {
                  ++lines;
                  return false;
                });
  EXPECT_EQ(lines, 2);
}

TEST_F(ControlChangesTest, AReadOnlyMountSendsNothing) {
  makeFile("a.txt", "hello");
  options.readWrite = false;
  reopen();
  const json answer = ask(json{{"op", "flush"}, {"wait", true}});
  EXPECT_FALSE(answer["ok"]);
  EXPECT_EQ(answer["pending"], 1);
  EXPECT_NE(answer["error"].get<std::string>().find("read-only"), std::string::npos);
}

TEST_F(ControlChangesTest, RetryIsAboutWhatIsNamed) {
  refuseOnce();
  const NodeId one = makeFile("a?", "a");
  push();
  refuseOnce();
  const NodeId other = makeFile("b?", "b");
  push();
  EXPECT_EQ(counts().attention, 2);
  EXPECT_EQ(ask(json{{"op", "retry"}, {"nodes", {one}}})["retried"], 1);
  drain();
  EXPECT_FALSE(change(one));
  EXPECT_TRUE(row(one)->error.empty());
  EXPECT_TRUE(change(other)->attention);
  EXPECT_EQ(ask(json{{"op", "retry"}})["retried"], 1);
  drain();
  EXPECT_FALSE(change(other));
}

TEST_F(ControlChangesTest, ARefusedDeletionIsFoundByItsFormerName) {
  downloaded("i:1", "a.txt", "base");
  refuseOnce();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  const json deleted = json::array({{{"folder", kRootNode}, {"name", "a.txt"}}});
  const json answer = ask(json{{"op", "changes"}, {"deleted", deleted}});
  ASSERT_EQ(answer["changes"].size(), 1U);
  EXPECT_EQ(answer["changes"][0]["kind"], "delete");
  EXPECT_EQ(answer["changes"][0]["state"], "needs attention");
  EXPECT_EQ(ask(json{{"op", "discard"}, {"deleted", deleted}})["discarded"], 1);
  list();
  EXPECT_EQ(readThrough(named("a.txt")), "base");
  const json again = ask(json{{"op", "discard"}, {"deleted", deleted}});
  EXPECT_FALSE(again["ok"]);
  EXPECT_EQ(again["failures"][0]["path"], "a.txt");
}

TEST_F(ControlChangesTest, DiscardOfAFolderIsAboutAllThatIsInIt) {
  const NodeId folder = makeFolder("Docs");
  makeFile("a.txt", "x", folder);
  EXPECT_EQ(ask(json{{"op", "discard"}, {"nodes", {folder}}})["discarded"], 2);
  EXPECT_EQ(named("Docs"), kNoNode);
  push();
  EXPECT_TRUE(sent().empty());
}

TEST_F(ControlChangesTest, AFolderSaysWhatKeepsItFromBeingDiscarded) {
  const NodeId folder = makeFolder("Docs");
  const NodeId below = makeFolder("Below", folder);
  makeFile("a.txt", "x", folder);
  makeFile("b.txt~", "a backup", below);
  const json request{{"op", "changes"}, {"nodes", {folder}}};
  std::map<std::string, json> keeps;
  const json told = ask(request);
  for (const json& change : told["changes"])
    keeps[change["path"]] = change.value("keeps", json());
  EXPECT_EQ(keeps["Docs"], json::array({"Below/b.txt~"}));
  EXPECT_EQ(keeps["Docs/Below"], json::array({"b.txt~"}));
  EXPECT_TRUE(keeps["Docs/a.txt"].is_null());
  const json answer = ask(json{{"op", "discard"}, {"nodes", {folder}}});
  EXPECT_FALSE(answer["ok"]);
  EXPECT_EQ(answer["discarded"], 1);
  EXPECT_EQ(answer["failures"].size(), 2U);
  EXPECT_EQ(names(below).count("b.txt~"), 1U);
  EXPECT_EQ(engine->edits().removeFile(below, "b.txt~"), 0);
  EXPECT_TRUE(ask(json{{"op", "discard"}, {"nodes", {folder}}})["ok"]);
  EXPECT_EQ(named("Docs"), kNoNode);
}

TEST_F(ControlChangesTest, AFolderThatWasMovedGoesBackWithWhatIsInIt) {
  extension->folder("f:1", "Docs");
  extension->folder("f:2", "Other");
  list();
  const NodeId folder = idOf("f:1");
  extension->file("i:1", "a.txt", "inside", "f:1");
  list(folder);
  readThrough(idOf("i:1"));
  EXPECT_EQ(engine->edits().rename(kRootNode, "Docs", idOf("f:2"), "Moved", 0), 0);
  EXPECT_EQ(engine->uploader().discard(folder), 0);
  EXPECT_EQ(named("Docs"), folder);
  EXPECT_EQ(named("a.txt", folder), idOf("i:1"));
  EXPECT_EQ(contentsOf(idOf("i:1")), "inside");
  push();
  EXPECT_TRUE(sent().empty());
}

TEST_F(ControlChangesTest, AFolderDoesNotGoBackWhereAnotherIs) {
  extension->folder("f:1", "Docs");
  list();
  const NodeId folder = idOf("f:1");
  extension->file("i:1", "a.txt", "inside", "f:1");
  list(folder);
  EXPECT_EQ(rename("Docs", "Moved"), 0);
  makeFolder("Docs");
  EXPECT_EQ(engine->uploader().discard(folder), EEXIST);
  EXPECT_EQ(named("Moved"), folder);
}

TEST_F(ControlChangesTest, AFolderDoesNotGoBackIntoItself) {
  extension->folder("f:1", "Outer");
  list();
  extension->folder("f:2", "Inner", "f:1");
  list(idOf("f:1"));
  const NodeId outer = idOf("f:1");
  const NodeId inner = idOf("f:2");
  extension->file("i:1", "a.txt", "inside", "f:2");
  list(inner);
  EXPECT_EQ(engine->edits().rename(outer, "Inner", kRootNode, "Inner", 0), 0);
  EXPECT_EQ(engine->edits().rename(kRootNode, "Outer", inner, "Outer", 0), 0);
  EXPECT_EQ(engine->uploader().discard(inner), EINVAL);
  EXPECT_EQ(named("Inner"), inner);
  EXPECT_EQ(engine->uploader().discard(outer), 0);
  list();
  EXPECT_NE(named("Outer"), kNoNode);
}

TEST_F(ControlChangesTest, WhatIsBeingWrittenIsNotDiscarded) {
  const NodeId id = makeFile("a.txt", "mine");
  OpenFile handle(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content, 4);
  handle.setWrites();
  const json answer = ask(json{{"op", "discard"}, {"nodes", {id}}});
  EXPECT_FALSE(answer["ok"]);
  EXPECT_EQ(answer["failures"][0]["path"], "a.txt");
  EXPECT_EQ(contentsOf(id), "mine");
}

TEST_F(ControlChangesTest, WhatIsNoRequestIsAnError) {
  for (const char* request :
       {R"({"op":"discard","nodes":["a"]})", R"({"op":"flush","nodes":7})",
        R"({"op":"retry","deleted":[{}]})", R"({"op":"flush","timeout":"soon"})", "[]", "flush"}) {
    const json answer = ask(std::string(request));
    EXPECT_FALSE(answer["ok"]) << request;
    EXPECT_TRUE(answer.contains("error")) << request;
  }
}

TEST_F(ControlChangesTest, ANumberThatNobodyHasMeansNothing) {
  makeFile("a.txt", "x");
  const json answer = ask(json{{"op", "changes"}, {"nodes", {98765}}});
  EXPECT_TRUE(answer["ok"]);
  EXPECT_TRUE(answer["changes"].empty());
  EXPECT_EQ(ask(json{{"op", "discard"}, {"nodes", {98765}}})["discarded"], 0);
}

TEST_F(ControlChangesTest, AProgramThatWaitsIsToldThatTheHostHasIt) {
  const NodeId id = makeFile("a.txt", "hello");
  Program program;
  await(program, id);
  EXPECT_EQ(program.told, -1);
  drain();
  EXPECT_EQ(program.told, 0);
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(ControlChangesTest, WhatNeedsNoHostIsToldAtOnce) {
  const NodeId id = makeFile("a.txt~", "hello");
  std::filesystem::remove(directory.file("fp.sock"));
  Program program;
  await(program, id);
  EXPECT_EQ(program.told, 0);
}

TEST_F(ControlChangesTest, WithoutAHostItIsToldAtOnceAndGoesUpLater) {
  const NodeId id = makeFile("a.txt", "hello");
  std::filesystem::remove(directory.file("fp.sock"));
  Program program;
  await(program, id);
  EXPECT_EQ(program.told, EHOSTDOWN);
  writeFile(directory.file("fp.sock"), "");
  push();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(ControlChangesTest, TheHostsVerdictComesByTheTableOfErrors) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->scriptMutation(
      {.error = fileProviderError(NSFileProviderErrorCode::insufficientQuota)});
  Program program;
  await(program, id);
  drain();
  EXPECT_EQ(program.told, EDQUOT);
  EXPECT_TRUE(change(id));
}

TEST_F(ControlChangesTest, AFileGoesUpAlthoughItIsStillOpenWhenSomebodyWaits) {
  const NodeId id = makeFile("a.txt", "first");
  OpenFile handle(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content, 5);
  handle.setWrites();
  push();
  EXPECT_TRUE(sent().empty());
  Program program;
  await(program, id);
  drain();
  EXPECT_EQ(program.told, 0);
  EXPECT_EQ(hostContents("a.txt"), "first");
  write(id, "second");
  push();
  EXPECT_EQ(hostContents("a.txt"), "first");
}

TEST_F(ControlChangesTest, WhatIsInAFolderThatFailsFailsWithIt) {
  const NodeId folder = makeFolder("Docs");
  const NodeId id = makeFile("a.txt", "x", folder);
  extension->scriptMutation(
      {.error = fileProviderError(NSFileProviderErrorCode::serverUnreachable)});
  Program program;
  await(program, id);
  drain();
  EXPECT_EQ(program.told, EHOSTDOWN);
}

TEST_F(ControlChangesTest, AnInterruptedProgramLeavesItsChangeOnTheWay) {
  const NodeId id = makeFile("a.txt", "hello");
  Program program;
  await(program, id);
  engine->uploader().verdicts().cancel(program.ticket, EINTR);
  EXPECT_EQ(program.told, EINTR);
  drain();
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(ControlChangesTest, WhoWaitsWhenTheServiceEndsIsToldSo) {
  const NodeId id = makeFile("a.txt", "hello");
  Program before;
  await(before, id);
  engine->uploader().stop();
  EXPECT_EQ(before.told, EIO);
  Program after;
  await(after, id);
  EXPECT_EQ(after.told, EIO);
}

}  // namespace
}  // namespace tulo::test
