#include "service/control/ServiceControl.h"

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using nlohmann::json;

class ServiceControlTest : public ControlFixture {
 protected:
  json ask(const std::string& request) {
    lines.clear();
    ended = answerControl(parts(), request, [this](const std::string& line) {
      lines.push_back(line);
      return listening;
    });
    return json::parse(lines.back());
  }

  std::vector<std::string> lines;
  bool listening = true;
  bool ended = false;
};

TEST_F(ServiceControlTest, EveryOperationIsAnswered) {
  for (const char* operation : {"status", "pin", "unpin", "download", "evict", "changes", "flush",
                                "retry", "discard", "unmount"}) {
    const json answer = ask(json{{"op", operation}}.dump());
    EXPECT_EQ(answer["ok"], true) << operation << ": " << answer;
  }
}

TEST_F(ServiceControlTest, TheAnswersOfAnAccountAtRestStayAsTheyAre) {
  for (const char* operation : {"pin", "unpin"}) {
    ask(json{{"op", operation}}.dump());
    EXPECT_EQ(lines.back(), R"({"failures":[],"ok":true})");
  }
  for (const char* operation : {"download", "evict"}) {
    ask(json{{"op", operation}}.dump());
    EXPECT_EQ(lines.back(), R"({"failures":[],"files":0,"ok":true})");
  }
  ask(R"({"op":"changes"})");
  EXPECT_EQ(lines.back(), R"({"changes":[],"failures":[],"ok":true})");
  ask(R"({"op":"flush","wait":true})");
  EXPECT_EQ(lines, (std::vector<std::string>{
                       R"({"changes":[],"failures":[],"hostPresent":true,"hostReachable":true,)"
                       R"("needsAttention":0,"ok":true,"paused":false,"pending":0})"}));
  ask(R"({"op":"retry"})");
  EXPECT_EQ(lines.back(), R"({"ok":true,"retried":0})");
  ask(R"({"op":"discard"})");
  EXPECT_EQ(lines.back(), R"({"discarded":0,"failures":[],"ok":true})");
  ask(R"({"op":"unmount"})");
  EXPECT_EQ(lines.back(), R"({"needsAttention":0,"ok":true,"pending":0})");
}

TEST_F(ServiceControlTest, OnlyUnmountEndsTheService) {
  ask(R"({"op":"unmount"})");
  EXPECT_TRUE(ended);
  for (const char* request : {R"({"op":"status"})", R"({"op":"unmounted"})", "unmount"}) {
    ask(request);
    EXPECT_FALSE(ended) << request;
  }
}

TEST_F(ServiceControlTest, AMountThatStaysKeepsTheService) {
  std::vector<control::Leaving> asked;
  control::UnmountReply reply{control::Outcome::refused("in use")};
  ControlParts own = parts();
  own.leave = [&](const control::UnmountRequest& request) {
    asked.push_back(request.how);
    return reply;
  };
  const auto ends = [&](const std::string& request) {
    return answerControl(own, request, [](const std::string&) { return true; });
  };
  EXPECT_FALSE(ends(R"({"op":"unmount"})"));
  reply = {control::Outcome::good()};
  EXPECT_TRUE(ends(R"({"op":"unmount","how":"byForce"})"));
  reply.goesOn = true;
  EXPECT_FALSE(ends(R"({"op":"unmount","how":"lazily"})"));
  EXPECT_EQ(asked, (std::vector{control::Leaving::ifUnused, control::Leaving::byForce,
                                control::Leaving::lazily}));
}

TEST_F(ServiceControlTest, UnmountCountsWhatIsLeftBehind) {
  refused("a?");
  makeFile("b.txt", "x");
  const json answer = ask(R"({"op":"unmount"})");
  EXPECT_EQ(answer["pending"], 1);
  EXPECT_EQ(answer["needsAttention"], 1);
}

TEST_F(ServiceControlTest, AnUnknownOperationIsNamed) {
  EXPECT_EQ(ask(R"({"op":"fly"})")["error"], "unknown operation: fly");
  EXPECT_EQ(ask("{}")["error"], "unknown operation: ");
}

TEST_F(ServiceControlTest, WhatIsNoRequestIsAnError) {
  for (const char* request :
       {R"({"op":"discard","nodes":["a"]})", R"({"op":"flush","nodes":7})",
        R"({"op":"retry","deleted":[{}]})", R"({"op":"flush","timeout":"soon"})", "[]", "flush"}) {
    const json answer = ask(request);
    EXPECT_EQ(answer["ok"], false) << request;
    EXPECT_EQ(answer["error"].get<std::string>().rfind("not a request: ", 0), 0U) << answer;
  }
}

TEST_F(ServiceControlTest, ProgressComesBeforeTheAnswer) {
  makeFile("a.txt", "hello");
  ask(R"({"op":"flush","wait":true,"timeout":1})");
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[0], R"({"progress":{"hostPresent":true,"hostReachable":true,"left":1,)"
                      R"("paused":false}})");
}

TEST_F(ServiceControlTest, WhoGoesAwayEndsTheWaiting) {
  makeFile("a.txt", "hello");
  listening = false;
  ask(R"({"op":"flush","wait":true})");
  EXPECT_EQ(lines.size(), 2U);
}

TEST_F(ServiceControlTest, ANameThatIsNoTextIsShownAllTheSame) {
  makeFile("a\xff", "x");
  EXPECT_EQ(ask(R"({"op":"changes"})")["changes"][0]["path"], "a\xEF\xBF\xBD");
}

TEST_F(ServiceControlTest, WhatWasWrittenJustNowIsToldWithItsSize) {
  const NodeId id = makeFile("a.txt", "");
  const auto file = engine->files().open(id);
  EXPECT_EQ(file.file->write("hello", 5, 0), 5);
  engine->files().settleLater(id);
  EXPECT_EQ(ask(R"({"op":"changes"})")["changes"][0]["size"], 5);
}

}  // namespace
}  // namespace tulo::test
