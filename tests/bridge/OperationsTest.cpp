#include <thread>

#include "tests/bridge/BridgeFixture.h"
#include "tests/support/CaseName.h"
#include "tests/support/ClientSocket.h"

namespace tulo::test {
namespace {

using platform::JSONObject;
using testing::ElementsAre;

const std::optional<std::string> none;
const std::optional<platform::URL> noContents;

class OperationsTest : public BridgeFixture {
 protected:
  // The only request that the call sends to a host which answers like this.
  template <typename Call>
  JSONObject requestOf(const Call& call, const std::string& reply = R"({"ok":true})") const {
    FakeHost host(container_.socketPath());
    host.then(replies(reply));
    call();
    const auto requests = host.requests();
    EXPECT_EQ(requests.size(), 1U);
    return requests.empty() ? JSONObject{} : decoded(requests.front());
  }

  template <typename Call>
  std::string failureOf(const Call& call, const std::string& reply) const {
    FakeHost host(container_.socketPath());
    host.then(replies(reply));
    return thrownBy(call);
  }
};

TEST_F(OperationsTest, FetchSendsAccountAndUlid) {
  EXPECT_EQ(requestOf([] { HostBridge::fetch("acct", "U"); }, R"({"ok":true,"path":"/p"})"),
            (JSONObject{{"op", "fetch"}, {"account", "acct"}, {"ulid", "U"}}));
}

TEST_F(OperationsTest, ThumbnailSendsAccountAndUlid) {
  EXPECT_EQ(requestOf([] { HostBridge::thumbnail("acct", "U"); }, R"({"ok":true,"path":"/p"})"),
            (JSONObject{{"op", "thumbnail"}, {"account", "acct"}, {"ulid", "U"}}));
}

TEST_F(OperationsTest, CreateWithoutParentAndContentsSendsNeither) {
  EXPECT_EQ(requestOf([] { HostBridge::create("acct", none, "name", noContents); },
                      R"({"ok":true,"ulid":"N"})"),
            (JSONObject{{"op", "create"}, {"account", "acct"}, {"name", "name"}}));
}

TEST_F(OperationsTest, CreateSendsItsParent) {
  EXPECT_EQ(requestOf([] { HostBridge::create("acct", "P", "name", noContents); },
                      R"({"ok":true,"ulid":"N"})"),
            (JSONObject{{"op", "create"}, {"account", "acct"}, {"name", "name"}, {"parent", "P"}}));
}

TEST_F(OperationsTest, CreateSendsAnEmptyParentAsItIs) {
  const auto request = requestOf([] { HostBridge::create("acct", "", "", noContents); },
                                 R"({"ok":true,"ulid":"N"})");
  EXPECT_EQ(request,
            (JSONObject{{"op", "create"}, {"account", "acct"}, {"name", ""}, {"parent", ""}}));
}

TEST_F(OperationsTest, ModifyOfNothingSendsTheFixedKeysOnly) {
  EXPECT_EQ(
      requestOf([] { HostBridge::modify("acct", "U", false, noContents, none, std::nullopt); }),
      (JSONObject{{"op", "modify"}, {"account", "acct"}, {"ulid", "U"}, {"is_folder", false}}));
}

TEST_F(OperationsTest, ModifyOfTheNameSendsTheNameAndNothingElse) {
  EXPECT_EQ(
      requestOf([] { HostBridge::modify("acct", "U", true, noContents, "new", std::nullopt); }),
      (JSONObject{{"op", "modify"},
                  {"account", "acct"},
                  {"ulid", "U"},
                  {"is_folder", true},
                  {"name", "new"}}));
}

TEST_F(OperationsTest, ModifyToTheTopLevelSendsANullParent) {
  const std::optional<std::optional<std::string>> top{std::in_place, std::nullopt};
  EXPECT_EQ(requestOf([&] { HostBridge::modify("acct", "U", false, noContents, none, top); }),
            (JSONObject{{"op", "modify"},
                        {"account", "acct"},
                        {"ulid", "U"},
                        {"is_folder", false},
                        {"parent", nullptr}}));
}

TEST_F(OperationsTest, ModifyToAFolderSendsItsUlid) {
  const std::optional<std::optional<std::string>> parent{std::in_place, "P"};
  EXPECT_EQ(requestOf([&] { HostBridge::modify("acct", "U", false, noContents, none, parent); }),
            (JSONObject{{"op", "modify"},
                        {"account", "acct"},
                        {"ulid", "U"},
                        {"is_folder", false},
                        {"parent", "P"}}));
}

TEST_F(OperationsTest, DeleteTellsFoldersFromFiles) {
  EXPECT_EQ(
      requestOf([] { HostBridge::deleteItem("acct", "U", true); }),
      (JSONObject{{"op", "delete"}, {"account", "acct"}, {"ulid", "U"}, {"is_folder", true}}));
  EXPECT_EQ(
      requestOf([] { HostBridge::deleteItem("acct", "U", false); }),
      (JSONObject{{"op", "delete"}, {"account", "acct"}, {"ulid", "U"}, {"is_folder", false}}));
}

TEST_F(OperationsTest, FetchAndThumbnailGiveThePathAsItStands) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":true,"path":"/no/../such//file "})"));
  EXPECT_EQ(HostBridge::fetch("a", "U").path(), "/no/../such//file ");
  EXPECT_EQ(HostBridge::thumbnail("a", "U").path(), "/no/../such//file ");
}

TEST_F(OperationsTest, CreateGivesTheNewUlid) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":true,"ulid":"NEW","path":"/ignored"})"));
  EXPECT_EQ(HostBridge::create("a", none, "n", noContents), "NEW");
}

struct Operation {
  const char* title;
  void (*call)();
  int timeout;
  const char* reply;          // of a success
  const char* withoutResult;  // what a success without its result throws
  const char* resultKey;      // "" for none
};

class AnyOperationTest : public OperationsTest, public testing::WithParamInterface<Operation> {};

TEST_P(AnyOperationTest, HasItsDefaultTimeout) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, GetParam().reply));
  std::thread caller(GetParam().call);
  EXPECT_TRUE(host.waitForRequests(1));
  const auto timeouts = timeoutsOfClientOf(container_.socketPath());
  gate.open();
  caller.join();
  const std::int64_t microseconds = std::int64_t{GetParam().timeout} * 1'000'000;
  EXPECT_EQ(timeouts.value(), (SocketTimeouts{microseconds, microseconds}));
}

TEST_P(AnyOperationTest, IsUnreachableWithoutAHost) {
  EXPECT_EQ(thrownBy(GetParam().call), "unreachable");
}

TEST_P(AnyOperationTest, PassesTheHostsFailureOn) {
  EXPECT_EQ(failureOf(GetParam().call, R"({"ok":false,"error":"E"})"), "failed(\"E\")");
  EXPECT_EQ(failureOf(GetParam().call, R"({"ok":false,"error":"E","kind":"quota"})"),
            "remote(kind: \"quota\", message: \"E\")");
}

TEST_P(AnyOperationTest, PassesNoReplyOn) {
  EXPECT_EQ(failureOf(GetParam().call, "[]"), noReply);
}

TEST_P(AnyOperationTest, JudgesTheReplyBeforeItReadsTheResult) {
  EXPECT_EQ(failureOf(GetParam().call, R"({"ok":false,"path":"/p","ulid":"N"})"),
            "failed(\"unknown error\")");
}

TEST_P(AnyOperationTest, NeedsItsResultAsAString) {
  const std::string key = GetParam().resultKey;
  for (const char* value : {"null", "7", "true", "[]", "{\"path\":\"/p\"}"}) {
    const std::string reply = "{\"ok\":true,\"" + key + "\":" + value + "}";
    EXPECT_EQ(failureOf(GetParam().call, reply), GetParam().withoutResult) << reply;
  }
  EXPECT_EQ(failureOf(GetParam().call, R"({"ok":true})"), GetParam().withoutResult);
}

INSTANTIATE_TEST_SUITE_P(
    Operations, AnyOperationTest,
    testing::ValuesIn<Operation>({
        {"Fetch", [] { HostBridge::fetch("a", "U"); }, 300, R"({"ok":true,"path":"/p"})",
         "failed(\"host app returned no path\")", "path"},
        {"Thumbnail", [] { HostBridge::thumbnail("a", "U"); }, 20, R"({"ok":true,"path":"/p"})",
         "failed(\"host app returned no thumbnail path\")", "path"},
        {"Create", [] { HostBridge::create("a", none, "n", noContents); }, 600,
         R"({"ok":true,"ulid":"N"})", "failed(\"host app returned no item id\")", "ulid"},
        {"Modify", [] { HostBridge::modify("a", "U", false, noContents, none, std::nullopt); }, 600,
         R"({"ok":true})", "nothing", ""},
        {"Delete", [] { HostBridge::deleteItem("a", "U", false); }, 120, R"({"ok":true})",
         "nothing", ""},
    }),
    CaseName());

TEST_F(OperationsTest, TextThatIsNotUtf8IsTheSerializersError) {
  EXPECT_EQ(failureOf([] { HostBridge::fetch("a", "\xff"); }, "{}"), "serializer");
  EXPECT_EQ(failureOf([] { HostBridge::create("a", none, "\xff", noContents); }, "{}"),
            "serializer");
}

}  // namespace
}  // namespace tulo::test
