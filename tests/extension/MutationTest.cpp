#include "tests/extension/ExtensionFixture.h"
#include "tests/support/ClientSocket.h"
#include "tests/support/Descriptors.h"

namespace tulo::test {
namespace {

using platform::NSFileProviderItemFields;
using platform::UTType;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* done = R"({"ok":true})";
constexpr const char* created = R"({"ok":true,"ulid":"NEW"})";

std::shared_ptr<PlainItem> itemNamed(const std::string& name, const std::string& parent = root) {
  auto item = std::make_shared<PlainItem>();
  item->name = name;
  item->parent = parent;
  return item;
}

std::shared_ptr<PlainItem> itemOfType(const std::optional<UTType>& type) {
  auto item = itemNamed("name");
  item->type = type;
  return item;
}

std::shared_ptr<PlainItem> itemWithIdentifier(const std::string& identifier) {
  auto item = itemNamed("new name", "f:P");
  item->identifier = identifier;
  return item;
}

class MutationTest : public ExtensionFixture {
 protected:
  MutationTest() { writeFile(source_, "the contents"); }

  // The one call of a mutation that has come to its end on a worker.
  template <typename Calls, typename Start>
  static Calls finished(const Start& start) {
    Calls calls;
    ProgressWatch watch;
    const auto progress = watch.of(start(calls.callback(watch.during())));
    EXPECT_TRUE(calls.waitFor(1));
    EXPECT_TRUE(completes(*progress));
    EXPECT_EQ(calls.count(), 1U);
    EXPECT_EQ(progress->totalUnitCount(), 1);
    EXPECT_THAT(watch.counts(), ElementsAre(0)) << "completed before the completion had run";
    EXPECT_NE(calls.calls().at(0).thread, std::this_thread::get_id());
    return calls;
  }

  MutationCalls create(const platform::ItemPointer& item,
                       const std::optional<URL>& contents = std::nullopt) const {
    return finished<MutationCalls>(
        [&](auto callback) { return extension_->createItem(item, 0, contents, 0, {}, callback); });
  }

  MutationCalls modify(const platform::ItemPointer& item, NSFileProviderItemFields fields,
                       const std::optional<URL>& contents = std::nullopt) const {
    return finished<MutationCalls>([&](auto callback) {
      return extension_->modifyItem(item, {}, fields, contents, 0, {}, callback);
    });
  }

  DeleteCalls deleteItem(const std::string& identifier) const {
    return finished<DeleteCalls>(
        [&](auto callback) { return extension_->deleteItem(identifier, {}, 0, {}, callback); });
  }

  static std::string itemOf(const MutationCalls& calls) {
    EXPECT_EQ(calls.argument<1>(), 0U);
    EXPECT_EQ(calls.argument<2>(), false);
    EXPECT_EQ(calls.argument<3>(), std::nullopt);
    const auto item = calls.argument<0>();
    return item ? described(*item) : "none";
  }

  static void expectFailure(const MutationCalls& calls, const NSError& error) {
    EXPECT_EQ(calls.argument<0>(), nullptr);
    EXPECT_EQ(calls.argument<1>(), 0U);
    EXPECT_EQ(calls.argument<2>(), false);
    EXPECT_EQ(calls.argument<3>(), error);
  }

  // The request of a create or modify that succeeds; the path of a staged copy, which nobody can
  // foretell, as "staged".
  template <typename Call>
  JSONObject requestOf(const Call& call) const {
    FakeHost host(container_.socketPath());
    host.then(replies(created));
    call();
    JSONObject request = requestTo(host);
    if (const auto path = request.find("path"); path != request.end()) {
      EXPECT_EQ(readFile(std::get<std::string>(path->second)), "the contents");
      path->second = "staged";
    }
    return request;
  }

  TemporaryDirectory elsewhere_;
  const std::string source_ = elsewhere_.file("source");
  const URL contents_{source_};
};

class CreateTest : public MutationTest {};

TEST_F(CreateTest, SendsNameAndContents) {
  EXPECT_EQ(
      requestOf([&] { create(itemNamed("a b.txt"), contents_); }),
      (JSONObject{{"op", "create"}, {"account", "42"}, {"name", "a b.txt"}, {"path", "staged"}}));
}

TEST_F(CreateTest, WithoutContentsSendsNoneAndStagesNothing) {
  EXPECT_EQ(requestOf([&] { create(itemNamed("a")); }),
            (JSONObject{{"op", "create"}, {"account", "42"}, {"name", "a"}}));
  EXPECT_EQ(stagedCopies(), 0U);
}

TEST_F(CreateTest, SendsTheNameUnchanged) {
  for (const std::string& name :
       {std::string(), std::string(" a/b\\c\n"), std::string("e\u0301"), std::string("..")})
    EXPECT_EQ(requestOf([&] { create(itemNamed(name)); }),
              (JSONObject{{"op", "create"}, {"account", "42"}, {"name", name}}));
}

struct ParentCase {
  const char* title;
  std::string identifier;
  std::optional<std::string> ulid;
};

class ParentTest : public MutationTest, public testing::WithParamInterface<ParentCase> {};

TEST_P(ParentTest, IsAFolderOrTheRootForACreate) {
  JSONObject expected{{"op", "create"}, {"account", "42"}, {"name", "a"}};
  if (GetParam().ulid) expected["parent"] = *GetParam().ulid;
  EXPECT_EQ(requestOf([&] { create(itemNamed("a", GetParam().identifier)); }), expected);
}

TEST_P(ParentTest, IsAFolderOrTheRootForAMove) {
  auto item = itemNamed("a", GetParam().identifier);
  item->identifier = "i:U";
  JSONObject expected{{"op", "modify"}, {"account", "42"}, {"ulid", "U"}, {"is_folder", false}};
  if (GetParam().ulid) {
    expected["parent"] = *GetParam().ulid;
  } else {
    expected["parent"] = nullptr;
  }
  EXPECT_EQ(requestOf([&] { modify(item, 4); }), expected);
}

INSTANTIATE_TEST_SUITE_P(Parents, ParentTest,
                         testing::ValuesIn<ParentCase>({
                             {"Root", root, std::nullopt},
                             {"Folder", "f:P", "P"},
                             {"NamelessFolder", "f:", ""},
                             {"File", "i:P", std::nullopt},
                             {"Unparsable", "P", std::nullopt},
                             {"Empty", "", std::nullopt},
                             {"Trash", platform::NSFileProviderTrashContainerItemIdentifier(),
                              std::nullopt},
                         }),
                         CaseName());

TEST_F(CreateTest, AFolderIsSentWithoutContentsAndNothingIsStaged) {
  EXPECT_EQ(requestOf([&] { create(itemOfType(UTType::folder()), contents_); }),
            (JSONObject{{"op", "create"}, {"account", "42"}, {"name", "name"}}));
  EXPECT_EQ(stagedCopies(), 0U);
}

TEST_F(CreateTest, EveryOtherTypeIsSentAsAFile) {
  for (const auto& type :
       {std::optional<UTType>(), std::optional(UTType::data()),
        std::optional(UTType("com.apple.package")), std::optional(UTType("public.directory")),
        std::optional(UTType("Public.Folder"))}) {
    const auto request = requestOf([&] { create(itemOfType(type), contents_); });
    EXPECT_EQ(request.count("path"), 1U);
  }
}

TEST_F(CreateTest, IgnoresFieldsOptionsAndWhoAsks) {
  const auto request = requestOf([&] {
    finished<MutationCalls>([&](auto callback) {
      return extension_->createItem(itemNamed("a"), ~0ULL, contents_,
                                    platform::NSFileProviderCreateItemMayAlreadyExist, {true, true},
                                    callback);
    });
  });
  EXPECT_EQ(request,
            (JSONObject{{"op", "create"}, {"account", "42"}, {"name", "a"}, {"path", "staged"}}));
}

class CreatedItemTest : public MutationTest {
 protected:
  std::string createdItem(const std::optional<UTType>& type = std::nullopt) const {
    FakeHost host(container_.socketPath());
    host.then(replies(created));
    return itemOf(create(itemOfType(type)));
  }
};

TEST_F(CreatedItemTest, IsItsFileRow) {
  builder().folder("P", "A.pdf").file({"NEW", "a.pdf", std::nullopt, 5, 6, 7, std::nullopt});
  EXPECT_EQ(createdItem(), "i:NEW in " + root +
                               " named a (NEW).pdf type com.adobe.pdf may 47 size 5 modified 6"
                               " uploaded version 7 / 7-a (NEW).pdf");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(CreatedItemTest, IsItsFolderRow) {
  builder().folder("NEW", "Docs", "P");
  EXPECT_EQ(createdItem(UTType::folder()),
            "f:NEW in f:P named Docs type public.folder may 47 size none modified none uploaded"
            " version 0 / 0-Docs");
}

TEST_F(CreatedItemTest, IsTheFileWhereBothTablesHaveARow) {
  builder().folder("NEW", "the folder").file({.ulid = "NEW", .name = "the file"});
  EXPECT_THAT(createdItem(UTType::folder()), testing::StartsWith("i:NEW "));
  EXPECT_THAT(createdItem(), testing::StartsWith("i:NEW "));
}

TEST_F(CreatedItemTest, IsTheFolderThatTheHostMadeOfAFile) {
  builder().folder("NEW", "Docs");
  EXPECT_THAT(createdItem(), testing::StartsWith("f:NEW "));
}

TEST_F(CreatedItemTest, IsAPlaceholderOfItsKindUntilTheRowIsThere) {
  builder();
  EXPECT_EQ(createdItem(), "i:NEW" + likeTheRoot);
  EXPECT_EQ(createdItem(UTType::folder()), "f:NEW" + likeTheRoot);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(CreatedItemTest, WithoutAnIndexIsAPlaceholderAndTheIndexIsTriedTwice) {
  EXPECT_EQ(createdItem(), "i:NEW" + likeTheRoot);
  EXPECT_THAT(log_.lines(), ElementsAre(noIndex(), noIndex()));
}

struct FieldsCase {
  const char* title;
  NSFileProviderItemFields fields;
  JSONObject changes;  // the keys beside the fixed ones
};

class FieldsTest : public MutationTest, public testing::WithParamInterface<FieldsCase> {};

TEST_P(FieldsTest, DecideWhatIsSent) {
  JSONObject expected{{"op", "modify"}, {"account", "42"}, {"ulid", "U"}, {"is_folder", false}};
  expected.insert(GetParam().changes.begin(), GetParam().changes.end());
  EXPECT_EQ(requestOf([&] { modify(itemWithIdentifier("i:U"), GetParam().fields, contents_); }),
            expected);
  EXPECT_EQ(stagedCopies(), GetParam().changes.count("path"));
}

INSTANTIATE_TEST_SUITE_P(
    Masks, FieldsTest,
    testing::ValuesIn<FieldsCase>({
        {"None", 0, {}},
        {"Contents", 1, {{"path", "staged"}}},
        {"Name", 2, {{"name", "new name"}}},
        {"Parent", 4, {{"parent", "P"}}},
        {"ContentsAndName", 3, {{"path", "staged"}, {"name", "new name"}}},
        {"AllThree", 7, {{"path", "staged"}, {"name", "new name"}, {"parent", "P"}}},
        {"TagDataOnly", platform::NSFileProviderItemTagData, {}},
        {"EveryOtherBit", ~NSFileProviderItemFields{7}, {}},
        {"EveryBit",
         ~NSFileProviderItemFields{0},
         {{"path", "staged"}, {"name", "new name"}, {"parent", "P"}}},
    }),
    CaseName());

class ModifyTest : public MutationTest {};

TEST_F(ModifyTest, TheContentsBitWithoutContentsSendsNone) {
  EXPECT_EQ(requestOf([&] { modify(itemWithIdentifier("i:U"), 1); }),
            (JSONObject{{"op", "modify"}, {"account", "42"}, {"ulid", "U"}, {"is_folder", false}}));
}

TEST_F(ModifyTest, AFolderIsSentAsOneWithWhatItIsGiven) {
  EXPECT_EQ(requestOf([&] { modify(itemWithIdentifier("f:F"), 3, contents_); }),
            (JSONObject{{"op", "modify"},
                        {"account", "42"},
                        {"ulid", "F"},
                        {"is_folder", true},
                        {"name", "new name"},
                        {"path", "staged"}}));
}

TEST_F(ModifyTest, GivesTheRowOfItsTable) {
  builder().folder("X", "the folder", "P").file({"X", "the file", "P", 5, 6, 7, std::nullopt});
  FakeHost host(container_.socketPath());
  host.then(replies(done));
  EXPECT_EQ(itemOf(modify(itemWithIdentifier("i:X"), 2)),
            "i:X in f:P named the file type public.data may 47 size 5 modified 6 uploaded"
            " version 7 / 7-the file");
  EXPECT_EQ(itemOf(modify(itemWithIdentifier("f:X"), 2)),
            "f:X in f:P named the folder type public.folder may 47 size none modified none"
            " uploaded version 0 / 0-the folder");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ModifyTest, TheRowIsReadAfterTheHostHasAnswered) {
  auto index = builder();
  FakeHost host(container_.socketPath());
  host.then(repliesWith([&](const std::string&) {
    index.file({.ulid = "U", .name = "just written"});
    return done;
  }));
  EXPECT_THAT(itemOf(modify(itemWithIdentifier("i:U"), 2)), testing::HasSubstr("just written"));
}

TEST_F(ModifyTest, WithoutARowGivesAPlaceholderUnderTheSameIdentifier) {
  builder().folder("U", "only a folder");
  FakeHost host(container_.socketPath());
  host.then(replies(done));
  EXPECT_EQ(itemOf(modify(itemWithIdentifier("i:U"), 16)), "i:U" + likeTheRoot);
  EXPECT_EQ(itemOf(modify(itemWithIdentifier("f:F"), 2)), "f:F" + likeTheRoot);
}

TEST_F(ModifyTest, WithoutAnIndexGivesAPlaceholderAndTheIndexIsTriedOnce) {
  FakeHost host(container_.socketPath());
  host.then(replies(done));
  EXPECT_EQ(itemOf(modify(itemWithIdentifier("i:U"), 2)), "i:U" + likeTheRoot);
  EXPECT_THAT(log_.lines(), ElementsAre(noIndex()));
}

TEST_F(ModifyTest, WhatDoesNotParseIsNoSuchItemAtOnceWithoutTheHost) {
  const FakeHost host(container_.socketPath());
  for (const std::string& identifier : {root, std::string(), std::string("U")}) {
    const MutationCalls calls;
    const auto progress = extension_->modifyItem(itemWithIdentifier(identifier), {}, 7, contents_,
                                                 0, {}, calls.callback());
    ASSERT_EQ(calls.count(), 1U);
    EXPECT_EQ(calls.calls().front().thread, std::this_thread::get_id());
    expectFailure(calls, noSuchItem);
    EXPECT_EQ(progress->totalUnitCount(), 1);
    EXPECT_EQ(progress->completedUnitCount(), 1);
  }
  EXPECT_EQ(host.connections(), 0U);
  EXPECT_EQ(stagedCopies(), 0U);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

class DeleteTest : public MutationTest {};

TEST_F(DeleteTest, TellsFoldersFromFilesAndLeavesTheIndexAlone) {
  EXPECT_EQ(requestOf([&] { deleteItem("i:U"); }),
            (JSONObject{{"op", "delete"}, {"account", "42"}, {"ulid", "U"}, {"is_folder", false}}));
  EXPECT_EQ(requestOf([&] { deleteItem("f:F"); }),
            (JSONObject{{"op", "delete"}, {"account", "42"}, {"ulid", "F"}, {"is_folder", true}}));
  // There is no index: had it been opened, it would have said so.
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DeleteTest, SucceedsWithoutAnError) {
  FakeHost host(container_.socketPath());
  host.then(replies(done));
  EXPECT_EQ(deleteItem("i:U").argument<0>(), std::nullopt);
}

TEST_F(DeleteTest, IgnoresVersionAndOptions) {
  const auto request = requestOf([&] {
    finished<DeleteCalls>([&](auto callback) {
      return extension_->deleteItem(
          "i:U", {"1", "1-a"}, platform::NSFileProviderDeleteItemRecursive, {true, true}, callback);
    });
  });
  EXPECT_EQ(request,
            (JSONObject{{"op", "delete"}, {"account", "42"}, {"ulid", "U"}, {"is_folder", false}}));
}

TEST_F(DeleteTest, WhatDoesNotParseIsNoSuchItemAtOnceWithoutTheHost) {
  const FakeHost host(container_.socketPath());
  for (const std::string& identifier : {root, std::string(), std::string("U")}) {
    const DeleteCalls calls;
    const auto progress = extension_->deleteItem(identifier, {}, 0, {}, calls.callback());
    ASSERT_EQ(calls.count(), 1U);
    EXPECT_EQ(calls.calls().front().thread, std::this_thread::get_id());
    EXPECT_EQ(calls.argument<0>(), noSuchItem);
    EXPECT_EQ(progress->totalUnitCount(), 1);
    EXPECT_EQ(progress->completedUnitCount(), 1);
  }
  EXPECT_EQ(host.connections(), 0U);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

struct FailureCase {
  const char* title;
  FakeHost::Script script;
  NSError expected;
  std::string logged;
};

class MutationFailureTest : public MutationTest, public testing::WithParamInterface<FailureCase> {
 protected:
  MutationFailureTest() : host_(container_.socketPath()) { host_.then(GetParam().script); }

  FakeHost host_;
};

TEST_P(MutationFailureTest, OfACreateIsReportedAsWriteWithoutAUlid) {
  expectFailure(create(itemNamed("a")), GetParam().expected);
  EXPECT_THAT(log_.lines(), ElementsAre(extensionError("write failed for : " + GetParam().logged)));
}

TEST_P(MutationFailureTest, OfAModifyIsReportedAsWriteWithoutAUlid) {
  expectFailure(modify(itemWithIdentifier("i:U"), 2), GetParam().expected);
  EXPECT_THAT(log_.lines(), ElementsAre(extensionError("write failed for : " + GetParam().logged)));
}

TEST_P(MutationFailureTest, OfADeleteIsReportedWithItsUlid) {
  EXPECT_EQ(deleteItem("i:U").argument<0>(), GetParam().expected);
  EXPECT_THAT(log_.lines(),
              ElementsAre(extensionError("delete failed for U: " + GetParam().logged)));
}

INSTANTIATE_TEST_SUITE_P(
    Failures, MutationFailureTest,
    testing::ValuesIn<FailureCase>({
        {"NotFound", replies(R"({"kind":"not_found","error":"E"})"), noSuchItem,
         R"(remote(kind: "not_found", message: "E"))"},
        {"InvalidName", replies(R"({"kind":"invalid_name"})"), platform::cocoaError(514),
         R"(remote(kind: "invalid_name", message: "unknown error"))"},
        {"Conflict", replies(R"({"kind":"conflict","error":"E"})"), cannotSynchronize,
         R"(remote(kind: "conflict", message: "E"))"},
        {"ConflictInTheText", replies(R"({"ok":false,"error":"conflict"})"), serverUnreachable,
         R"(failed("conflict"))"},
        {"NoReply", hangsUp(), cannotSynchronize, R"(failed("no reply from host app"))"},
    }),
    CaseName());

TEST_F(MutationTest, AnUnreachableHostIsReportedWithoutALogLine) {
  expectFailure(create(itemNamed("a")), serverUnreachable);
  expectFailure(modify(itemWithIdentifier("i:U"), 2), serverUnreachable);
  EXPECT_EQ(deleteItem("i:U").argument<0>(), serverUnreachable);
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MutationTest, WithoutAHostTheStagedCopyStays) {
  expectFailure(create(itemNamed("a"), contents_), serverUnreachable);
  EXPECT_EQ(stagedCopies(), 1U);
}

TEST_F(CreateTest, WithoutTheNewUlidItFails) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":true,"ulid":7})"));
  expectFailure(create(itemNamed("a")), cannotSynchronize);
  EXPECT_THAT(
      log_.lines(),
      ElementsAre(extensionError("write failed for : failed(\"host app returned no item id\")")));
}

TEST_F(CreateTest, ContentsThatCannotBeStagedAreTheFileManagersFailure) {
  const FakeHost host(container_.socketPath());
  expectFailure(create(itemNamed("a"), URL(elsewhere_.file("missing"))), cannotSynchronize);
  ASSERT_EQ(log_.lines().size(), 1U);
  EXPECT_EQ(log_.lines()[0].level, "error");
  EXPECT_THAT(log_.lines()[0].message, testing::StartsWith("write failed for : "));
  EXPECT_THAT(log_.lines()[0].message, testing::HasSubstr("missing"));
  EXPECT_EQ(host.connections(), 0U);
}

TEST_F(CreateTest, AFileManagersFailureThatSaysLockedMayPass) {
  expectFailure(create(itemNamed("a"), URL(elsewhere_.file("locked"))), serverUnreachable);
}

TEST_F(CreateTest, ANameThatIsNotUtf8CannotBeSynchronized) {
  FakeHost host(container_.socketPath());
  host.then(replies(created));
  expectFailure(create(itemNamed("\xff")), cannotSynchronize);
  EXPECT_EQ(log_.lines().size(), 1U);
}

struct TimeoutCase {
  const char* title;
  std::function<void(FileProviderExtension&, const std::function<void()>&)> start;
  std::int64_t seconds;
};

class MutationTimeoutTest : public MutationTest, public testing::WithParamInterface<TimeoutCase> {};

TEST_P(MutationTimeoutTest, ReturnsAtOnceAndWaitsAsLongAsItsOperation) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, created));
  Gate isDone;
  GetParam().start(*extension_, [&] { isDone.open(); });
  ASSERT_TRUE(host.waitForRequests(1));
  EXPECT_FALSE(isDone.isOpen());
  const std::int64_t microseconds = GetParam().seconds * 1'000'000;
  EXPECT_EQ(timeoutsOfClientOf(container_.socketPath()),
            (SocketTimeouts{microseconds, microseconds}));
  gate.open();
  EXPECT_TRUE(isDone.wait());
}

INSTANTIATE_TEST_SUITE_P(
    Operations, MutationTimeoutTest,
    testing::ValuesIn<TimeoutCase>({
        {"Create",
         [](auto& extension, const auto& ended) {
           extension.createItem(itemNamed("a"), 0, std::nullopt, 0, {},
                                [ended](const auto&, auto, auto, const auto&) { ended(); });
         },
         600},
        {"Modify",
         [](auto& extension, const auto& ended) {
           extension.modifyItem(itemWithIdentifier("i:U"), {}, 2, std::nullopt, 0, {},
                                [ended](const auto&, auto, auto, const auto&) { ended(); });
         },
         600},
        {"Delete",
         [](auto& extension, const auto& ended) {
           extension.deleteItem("i:U", {}, 0, {}, [ended](const auto&) { ended(); });
         },
         120},
    }),
    CaseName());

TEST_F(MutationTest, CancellationIsNotObserved) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, done));
  const DeleteCalls calls;
  const auto progress = extension_->deleteItem("i:U", {}, 0, {}, calls.callback());
  ASSERT_TRUE(host.waitForRequests(1));
  progress->cancel();
  gate.open();
  ASSERT_TRUE(calls.waitFor(1));
  EXPECT_EQ(calls.argument<0>(), std::nullopt);
}

TEST_F(MutationTest, SeveralAreInFlightAtOnceEachOnItsOwnConnection) {
  builder();
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, created));
  const MutationCalls writes;
  const DeleteCalls deletes;
  for (int i = 0; i < 4; ++i) {
    extension_->createItem(itemNamed("a"), 0, contents_, 0, {}, writes.callback());
    extension_->modifyItem(itemWithIdentifier("i:U"), {}, 1, contents_, 0, {}, writes.callback());
    extension_->deleteItem("i:U", {}, 0, {}, deletes.callback());
  }
  ASSERT_TRUE(host.waitForRequests(12));
  EXPECT_EQ(writes.count() + deletes.count(), 0U);
  gate.open();
  ASSERT_TRUE(writes.waitFor(8));
  ASSERT_TRUE(deletes.waitFor(4));
  EXPECT_EQ(stagedCopies(), 8U);
}

TEST_F(MutationTest, CloseWhatTheyOpened) {
  builder().file({.ulid = "NEW", .name = "a"});
  FakeHost host(container_.socketPath());
  host.then(replies(created)).then(replies(done)).then(replies(done)).then(hangsUp());
  const auto before = openDescriptors();
  create(itemNamed("a"), contents_);
  modify(itemWithIdentifier("i:U"), 1, contents_);
  deleteItem("i:U");
  deleteItem("i:U");
  ASSERT_TRUE(host.waitUntilClosed(4));
  EXPECT_LE(openDescriptors(), before);
}

}  // namespace
}  // namespace tulo::test
