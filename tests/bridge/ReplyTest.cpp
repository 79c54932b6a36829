#include "tests/bridge/BridgeFixture.h"
#include "tests/support/CaseName.h"

namespace tulo::test {
namespace {

struct ReplyCase {
  const char* title;
  std::string reply;
  std::string thrown;
};

class ReplyTest : public testing::TestWithParam<ReplyCase> {};

TEST_P(ReplyTest, IsASuccessOrTheFailureThatItReports) {
  const auto reply = platform::JSONSerialization::object(GetParam().reply);
  ASSERT_TRUE(reply);
  EXPECT_EQ(thrownBy([&] { HostBridge::succeed(*reply); }), GetParam().thrown);
}

const std::string unknown = R"(failed("unknown error"))";

INSTANTIATE_TEST_SUITE_P(
    Replies, ReplyTest,
    testing::ValuesIn<ReplyCase>({
        {"Ok", R"({"ok":true})", "nothing"},
        {"OkIgnoresErrorAndKind", R"({"ok":true,"error":"E","kind":"quota"})", "nothing"},
        {"OkIgnoresOddErrorAndKind", R"({"ok":true,"error":[],"kind":7})", "nothing"},
        {"One", R"({"ok":1})", "nothing"},
        {"OnePointZero", R"({"ok":1.0})", "nothing"},
        {"OneAsAPower", R"({"ok":10e-1})", "nothing"},
        {"TheLastOkCounts", R"({"ok":false,"ok":true})", "nothing"},
        {"Empty", "{}", unknown},
        {"False", R"({"ok":false})", unknown},
        {"Null", R"({"ok":null})", unknown},
        {"TheWordTrue", R"({"ok":"true"})", unknown},
        {"TheDigitOne", R"({"ok":"1"})", unknown},
        {"Zero", R"({"ok":0})", unknown},
        {"Two", R"({"ok":2})", unknown},
        {"MinusOne", R"({"ok":-1})", unknown},
        {"AlmostOne", R"({"ok":1.0000001})", unknown},
        {"Array", R"({"ok":[true]})", unknown},
        {"Object", R"({"ok":{"ok":true}})", unknown},
        {"AnotherCase", R"({"OK":true})", unknown},
        {"Error", R"({"ok":false,"error":"E"})", R"(failed("E"))"},
        {"ErrorWithoutOk", R"({"error":"E"})", R"(failed("E"))"},
        {"ErrorBesideTheWordTrue", R"({"ok":"true","error":"E"})", R"(failed("E"))"},
        {"EmptyError", R"({"ok":false,"error":""})", R"(failed(""))"},
        {"NullError", R"({"ok":false,"error":null})", unknown},
        {"NumberAsError", R"({"ok":false,"error":5})", unknown},
        {"ObjectAsError", R"({"ok":false,"error":{"message":"E"}})", unknown},
        {"Kind", R"({"ok":false,"error":"E","kind":"quota"})",
         R"(remote(kind: "quota", message: "E"))"},
        {"KindAndNullError", R"({"ok":false,"error":null,"kind":"quota"})",
         R"(remote(kind: "quota", message: "unknown error"))"},
        {"KindAlone", R"({"kind":"locked"})",
         R"(remote(kind: "locked", message: "unknown error"))"},
        {"UnknownKind", R"({"kind":"?"})", R"(remote(kind: "?", message: "unknown error"))"},
        {"EmptyKind", R"({"kind":""})", R"(remote(kind: "", message: "unknown error"))"},
        {"NullKind", R"({"error":"E","kind":null})", R"(failed("E"))"},
        {"NumberAsKind", R"({"error":"E","kind":404})", R"(failed("E"))"},
        {"TrueAsKind", R"({"error":"E","kind":true})", R"(failed("E"))"},
        {"EscapesAreDecoded", R"({"error":"\u00e4 \"\/\""})", "failed(\"\u00e4 \"/\"\")"},
    }),
    CaseName());

}  // namespace
}  // namespace tulo::test
