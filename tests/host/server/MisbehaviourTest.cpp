#include "host/server/Misbehaviour.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "host/server/Reply.h"

namespace tulo::host {
namespace {

using nlohmann::json;
using Manner = Answer::Manner;

TEST(MisbehaviourTest, SomeFaultsComeInsteadOfTheWorkAndSomeAfterIt) {
  for (const char* kind : {"huge", "drop-reply", "no-result"}) {
    EXPECT_TRUE(doesTheWork(kind)) << kind;
  }
  for (const char* kind : {"garbage", "hangup", "silent", "no-kind", "quota", "whatever"}) {
    EXPECT_FALSE(doesTheWork(kind)) << kind;
  }
}

TEST(MisbehaviourTest, AnyOtherWordIsTheKindOfAFailure) {
  const json reply = json::parse(injectedAnswer("quota").line);
  EXPECT_EQ(reply["ok"], false);
  EXPECT_EQ(reply["kind"], "quota");
  EXPECT_FALSE(json::parse(injectedAnswer("no-kind").line).contains("kind"));
}

TEST(MisbehaviourTest, InsteadOfAReplyThereCanBeAnythingOrNothing) {
  EXPECT_FALSE(json::accept(injectedAnswer("garbage").line));
  EXPECT_EQ(injectedAnswer("hangup").manner, Manner::hangUp);
  EXPECT_EQ(injectedAnswer("silent").manner, Manner::silence);
}

TEST(MisbehaviourTest, AReplyCanBeSpoiled) {
  const std::string reply = pathReply("/p");
  EXPECT_EQ(spoiledAnswer("drop-reply", reply).manner, Manner::hangUp);
  EXPECT_EQ(json::parse(spoiledAnswer("no-result", reply).line), (json{{"ok", true}}));
  const Answer huge = spoiledAnswer("huge", reply);
  EXPECT_GT(huge.line.size(), std::size_t{8} << 20);
  EXPECT_EQ(huge.line.find('\n'), huge.line.size() - 1);
  EXPECT_EQ(json::parse(huge.line)["path"], "/p");
}

}  // namespace
}  // namespace tulo::host
