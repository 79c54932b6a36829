#include "host/server/RequestHandler.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// An account of a kind of its own: one file of which the version goes up as often as is wished.
class OneFile : public Account {
 public:
  explicit OneFile(std::string folder) : folder_(std::move(folder)) {
    test::writeFile(folder_ + "/file", "hello");
  }

  void start() override {}
  void stop() override {}
  AccountStatus status() override { return {"here", 1, 2, signedIn}; }
  bool isSignedIn() override { return signedIn; }
  void setSignedIn(bool value) override { signedIn = value; }
  OpenVersion openFile(const std::string& ulid) override {
    if (ulid != "u") throw OperationError(kind::notFound, "none");
    return {host::openFile(openFolderPath(folder_).get(), "file"), version};
  }
  std::optional<std::int64_t> currentVersion(const std::string&) override {
    if (changes > 0) version += changes-- > 0 ? 1 : 0;
    return version;
  }
  std::string create(const CreateRequest& request, const StagedCopy* contents) override {
    done.push_back("create " + request.name + (contents != nullptr ? " with contents" : ""));
    return "new";
  }
  void modify(const ModifyRequest& request, const StagedCopy*) override {
    done.push_back("modify " + request.ulid);
  }
  void remove(const DeleteRequest& request) override { done.push_back("remove " + request.ulid); }
  void setLock(const std::string& path, std::optional<std::int64_t> user) override {
    done.push_back((user ? "lock " : "unlock ") + path);
  }

  bool signedIn = true;
  int changes = 0;
  std::int64_t version = 1;
  std::vector<std::string> done;

 private:
  std::string folder_;
};

class RequestHandlerTest : public testing::Test {
 protected:
  RequestHandlerTest() {
    auto account = std::make_unique<OneFile>(directory_.path());
    account_ = account.get();
    accounts_["a"] = std::move(account);
  }
  json ask(json request) {
    if (!request.contains("account")) request["account"] = "a";
    return json::parse(handler_.answer(request.dump()).line);
  }
  std::size_t downloads() const {
    const fs::directory_iterator all(container_.pathOf("fp-download"));
    return static_cast<std::size_t>(std::distance(fs::begin(all), fs::end(all)));
  }

  const test::TemporaryDirectory directory_;
  const HostLog log_{true};
  const Container container_{directory_.file("container")};
  UlidSource ulids_;
  StopSignal stop_;
  Faults faults_;
  Staging staging_{container_, log_};
  Downloads downloads_{container_, ulids_, log_};
  Thumbnails thumbnails_{container_, log_};
  Accounts accounts_;
  OneFile* account_ = nullptr;
  RequestHandler handler_{{accounts_, staging_, downloads_, thumbnails_, faults_, stop_, log_}};
};

TEST_F(RequestHandlerTest, EveryOperationReachesItsAccount) {
  EXPECT_EQ(ask({{"op", "create"}, {"name", "n"}}), (json{{"ok", true}, {"ulid", "new"}}));
  const json ok{{"ok", true}};
  EXPECT_EQ(ask({{"op", "modify"}, {"ulid", "u"}, {"is_folder", false}}), ok);
  EXPECT_EQ(ask({{"op", "delete"}, {"ulid", "u"}, {"is_folder", false}}), ok);
  EXPECT_EQ(ask({{"op", "lock"}, {"path", "p"}, {"user", 7}}), ok);
  EXPECT_EQ(ask({{"op", "unlock"}, {"path", "p"}}), ok);
  EXPECT_THAT(account_->done,
              testing::ElementsAre("create n", "modify u", "remove u", "lock p", "unlock p"));
}

TEST_F(RequestHandlerTest, AFetchHandsOverACopy) {
  const json reply = ask({{"op", "fetch"}, {"ulid", "u"}});
  EXPECT_EQ(test::readFile(reply["path"]), "hello");
  EXPECT_EQ(ask({{"op", "fetch"}, {"ulid", "none"}})["kind"], "not_found");
}

TEST_F(RequestHandlerTest, AFileThatIsWrittenToMeanwhileIsCopiedAnewButNotForEver) {
  account_->changes = 1;
  ask({{"op", "fetch"}, {"ulid", "u"}});
  EXPECT_EQ(account_->version, 2);
  EXPECT_EQ(downloads(), 1U) << "the first copy was taken back";
  account_->changes = 100;
  EXPECT_EQ(ask({{"op", "fetch"}, {"ulid", "u"}})["ok"], true);
  EXPECT_LT(account_->version, 10);
  EXPECT_EQ(downloads(), 2U);
}

TEST_F(RequestHandlerTest, SignedOutNothingIsDoneButToSignIn) {
  ask({{"op", "logout"}});
  EXPECT_EQ(ask({{"op", "create"}, {"name", "n"}})["kind"], "unauthorized");
  EXPECT_TRUE(account_->done.empty());
  EXPECT_EQ(ask({{"op", "login"}})["ok"], true);
  EXPECT_EQ(ask({{"op", "create"}, {"name", "n"}})["ok"], true);
  EXPECT_EQ(ask({{"op", "login"}, {"account", "other"}})["kind"], "unauthorized");
}

TEST_F(RequestHandlerTest, TheStatusTellsOfEveryAccount) {
  EXPECT_EQ(ask({{"op", "status"}}), (json{{"ok", true},
                                           {"accounts",
                                            {{{"account", "a"},
                                              {"root", "here"},
                                              {"signed_in", true},
                                              {"folders", 1},
                                              {"items", 2}}}}}));
}

TEST_F(RequestHandlerTest, AStagedCopyThatWasNamedGoesWhateverTheAnswerIs) {
  const std::string path = container_.pathOf("fp-upload/one");
  test::writeFile(path, "x");
  faults_.add(Fault{"create", "quota", {}});
  EXPECT_EQ(ask({{"op", "create"}, {"name", "n"}, {"path", path}})["kind"], "quota");
  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(account_->done.empty());
  faults_.clear();
  test::writeFile(path, "x");
  ask({{"op", "create"}, {"name", "n"}, {"path", path}});
  EXPECT_THAT(account_->done, testing::ElementsAre("create n with contents"));
}

TEST_F(RequestHandlerTest, WhatIsNoRequestIsRefusedAndLogged) {
  const test::LogRecorder recorder;
  EXPECT_EQ(json::parse(handler_.answer("garbage").line)["kind"], "bad_request");
  ASSERT_EQ(recorder.lines().size(), 1U);
  EXPECT_EQ(recorder.lines()[0].level, "error");
}

TEST_F(RequestHandlerTest, EachRequestHasALineInTheLogWhereThatIsAskedFor) {
  const test::LogRecorder recorder;
  ask({{"op", "delete"}, {"ulid", "u"}, {"is_folder", false}});
  ASSERT_EQ(recorder.lines().size(), 1U);
  EXPECT_EQ(recorder.lines()[0].message, "delete for \"a\" of \"u\": {\"ok\":true}");
}

}  // namespace
}  // namespace tulo::host
