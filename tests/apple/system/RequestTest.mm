// What goes through the host application: downloads and mutations.
#import "tests/apple/system/SystemFixture.h"

namespace tulo::test {
namespace {

using platform::JSONObject;

class RequestTest : public SystemFixture {
 protected:
  RequestTest() { writeFile(source_, "the contents"); }

  NSURL *contents() const { return [NSURL fileURLWithPath:ns(source_)]; }

  static TemplateItem *named(const std::string &name, const std::string &parent = root,
                             const std::string &identifier = "temporary") {
    return [TemplateItem itemWithIdentifier:ns(identifier) parent:ns(parent) name:ns(name)];
  }

  // An answer of a worker of the queue for what the user waits for.
  static Answer finishedOnWorker(const Call &call) {
    const Answer answer = call.finished();
    EXPECT_NE(answer.thread, std::this_thread::get_id());
    EXPECT_EQ(answer.qualityOfService, static_cast<qos_class_t>(QOS_CLASS_USER_INITIATED));
    EXPECT_TRUE(eventually([&] { return call.answers.areReleased(); }));
    EXPECT_EQ(answer.pendingFields, 0U);
    EXPECT_FALSE(answer.shouldFetchContent);
    return answer;
  }

  // The request with the staged copy's path replaced by its bytes.
  static JSONObject withStagedBytes(JSONObject request) {
    if (const auto path = request.find("path"); path != request.end()) {
      path->second = readFile(std::get<std::string>(path->second));
    }
    return request;
  }

  TemporaryDirectory elsewhere_;
  const std::string source_ = elsewhere_.file("\u00E4 source");
};

TEST_F(RequestTest, ADownloadBringsTheHostsFileAndTheRow) {
  builder().file({.ulid = "U", .name = "a.txt", .size = 12});
  FakeHost host(container_.socketPath());
  host.then(replies(reply({{"ok", true}, {"path", source_}})));
  const Answer answer = finishedOnWorker(fetch(extension(), "i:U"));
  EXPECT_TRUE([answer.url.get() isFileURL]);
  EXPECT_EQ(text([answer.url.get() path]), source_);
  EXPECT_EQ(text([answer.item.get() filename]), "a.txt");
  EXPECT_EQ(described(answer.error.get()), "none");
  EXPECT_EQ(requestTo(host), (JSONObject{{"op", "fetch"}, {"account", "42"}, {"ulid", "U"}}));
}

// Foundation would make the working directory of an empty path, and the system unlinks what it is
// given.
TEST_F(RequestTest, AnEmptyPathOfTheHostsNamesNothing) {
  FakeHost host(container_.socketPath());
  host.then(replies(reply({{"ok", true}, {"path", ""}})));
  const Answer answer = finishedOnWorker(fetch(extension(), "i:U"));
  EXPECT_EQ([[answer.url.get() path] length], 0U);
  EXPECT_NE(answer.url.get(), nil);
}

TEST_F(RequestTest, ADownloadWithoutARowHasNoItemAndNoError) {
  FakeHost host(container_.socketPath());
  host.then(replies(reply({{"ok", true}, {"path", source_}})));
  const Answer answer = finishedOnWorker(fetch(extension(), "i:U"));
  EXPECT_EQ(text([answer.url.get() path]), source_);
  EXPECT_EQ(answer.item.get(), nil);
  EXPECT_EQ(answer.error.get(), nil);
}

TEST_F(RequestTest, WhatIsNoFileIsNoSuchItemAtOnce) {
  for (const std::string &identifier : {std::string("f:F"), root, std::string("nonsense")}) {
    const Call call = fetch(extension(), identifier);
    const Answer answer = call.answers.only();
    EXPECT_EQ(answer.thread, std::this_thread::get_id());
    EXPECT_EQ(answer.url.get(), nil);
    EXPECT_EQ(answer.item.get(), nil);
    EXPECT_EQ(described(answer.error.get()), noSuchItem);
    EXPECT_EQ([call.progress.get() completedUnitCount], 1);
  }
}

TEST_F(RequestTest, WithoutAHostTheServerIsUnreachable) {
  EXPECT_EQ(described(finishedOnWorker(fetch(extension(), "i:U")).error.get()), serverUnreachable);
  EXPECT_THAT(log_.lines(), testing::ElementsAre(extensionInfo("host app unreachable for U")));
  EXPECT_EQ(described(finishedOnWorker(create(extension(), named("a"))).error.get()),
            serverUnreachable);
  EXPECT_EQ(described(finishedOnWorker(remove(extension(), "i:U")).error.get()), serverUnreachable);
}

struct ErrorCase {
  const char *kind;
  const char *error;
};

void PrintTo(const ErrorCase &row, std::ostream *out) { *out << row.kind; }

class SystemErrorTest : public RequestTest, public testing::WithParamInterface<ErrorCase> {};

TEST_P(SystemErrorTest, HasItsDomainCodeAndUserInfo) {
  FakeHost host(container_.socketPath());
  host.then(replies(reply({{"ok", false}, {"kind", GetParam().kind}, {"error", "why"}})));
  EXPECT_EQ(described(finishedOnWorker(fetch(extension(), "i:U")).error.get()), GetParam().error);
  const Answer changed =
      finishedOnWorker(modify(extension(), named("a", root, "i:U"), NSFileProviderItemFilename));
  EXPECT_EQ(described(changed.error.get()), GetParam().error);
  EXPECT_EQ(changed.item.get(), nil);
}

INSTANTIATE_TEST_SUITE_P(Kinds, SystemErrorTest,
                         testing::ValuesIn<ErrorCase>({
                             {"unauthorized", "NSFileProviderErrorDomain -1000 with 0 entries"},
                             {"quota", "NSFileProviderErrorDomain -1003 with 0 entries"},
                             {"network", "NSFileProviderErrorDomain -1004 with 0 entries"},
                             {"not_found", "NSFileProviderErrorDomain -1005 with 0 entries"},
                             {"anything", "NSFileProviderErrorDomain -2005 with 0 entries"},
                             {"disk_full", "NSCocoaErrorDomain 640"},
                             {"invalid_name", "NSCocoaErrorDomain 514"},
                         }),
                         [](const auto &test) { return std::string(test.param.kind); });

TEST_F(RequestTest, ACreatedFileIsSentWithItsContentsAndAnsweredWithItsRow) {
  builder().file({.ulid = "NEW", .name = "a (NEW).txt", .size = 12, .version = 1});
  FakeHost host(container_.socketPath());
  host.then(replies(reply({{"ok", true}, {"ulid", "NEW"}})));
  const Answer answer =
      finishedOnWorker(create(extension(), named("\u00E4 \u65E5.txt", "f:P"), contents()));
  EXPECT_EQ(text([answer.item.get() filename]), "a (NEW).txt");
  EXPECT_EQ(text([answer.item.get() itemIdentifier]), "i:NEW");
  EXPECT_EQ(answer.error.get(), nil);
  EXPECT_EQ(withStagedBytes(requestTo(host)), (JSONObject{{"op", "create"},
                                                          {"account", "42"},
                                                          {"parent", "P"},
                                                          {"name", "\u00E4 \u65E5.txt"},
                                                          {"path", "the contents"}}));
}

TEST_F(RequestTest, ATemplateOfTheFolderTypeMakesAFolder) {
  FakeHost host(container_.socketPath());
  host.then(replies(reply({{"ok", true}, {"ulid", "NEW"}})));
  TypedTemplateItem *folder = [TypedTemplateItem itemWithIdentifier:@"temporary"
                                                             parent:ns(root)
                                                               name:@"Docs"];
  [folder setContentType:UTTypeFolder];
  const Answer answer = finishedOnWorker(create(extension(), folder, contents()));
  EXPECT_EQ(described(answer.item.get()), "f:NEW" + likeTheRoot);
  EXPECT_EQ(requestTo(host), (JSONObject{{"op", "create"}, {"account", "42"}, {"name", "Docs"}}));
}

TEST_F(RequestTest, ATemplateOfAnotherTypeOrNoneMakesAFile) {
  FakeHost host(container_.socketPath());
  host.then(replies(reply({{"ok", true}, {"ulid", "NEW"}})));
  TypedTemplateItem *package = [TypedTemplateItem itemWithIdentifier:@"temporary"
                                                              parent:ns(root)
                                                                name:@"a.pages"];
  [package setContentType:UTTypePackage];
  EXPECT_EQ(text([finishedOnWorker(create(extension(), package)).item.get() itemIdentifier]),
            "i:NEW");
  [package setContentType:nil];
  EXPECT_EQ(text([finishedOnWorker(create(extension(), package)).item.get() itemIdentifier]),
            "i:NEW");
  EXPECT_EQ(text([finishedOnWorker(create(extension(), named("a"))).item.get() itemIdentifier]),
            "i:NEW");
}

TEST_F(RequestTest, TheChangedFieldsDecideWhatIsSent) {
  struct Case {
    NSFileProviderItemFields fields;
    JSONObject changes;
  };
  for (const Case &row : {Case{NSFileProviderItemTagData, {}},
                          Case{NSFileProviderItemContents, {{"path", "the contents"}}},
                          Case{NSFileProviderItemFilename, {{"name", "new"}}},
                          Case{NSFileProviderItemParentItemIdentifier, {{"parent", "P"}}},
                          Case{~static_cast<NSFileProviderItemFields>(0),
                               {{"path", "the contents"}, {"name", "new"}, {"parent", "P"}}}}) {
    FakeHost host(container_.socketPath());
    host.then(replies(R"({"ok":true})"));
    const Answer answer =
        finishedOnWorker(modify(extension(), named("new", "f:P", "i:U"), row.fields, contents()));
    EXPECT_EQ(described(answer.item.get()), "i:U" + likeTheRoot);
    JSONObject expected{{"op", "modify"}, {"account", "42"}, {"ulid", "U"}, {"is_folder", false}};
    expected.insert(row.changes.begin(), row.changes.end());
    EXPECT_EQ(withStagedBytes(requestTo(host)), expected);
  }
}

TEST_F(RequestTest, TheRootCannotBeChangedOrDeleted) {
  const Call changed = modify(extension(), named("a", root, root), NSFileProviderItemFilename);
  EXPECT_EQ(described(changed.answers.only().error.get()), noSuchItem);
  EXPECT_EQ(described(remove(extension(), root).answers.only().error.get()), noSuchItem);
}

TEST_F(RequestTest, ADeletionIsSentAndAnsweredWithoutAnError) {
  FakeHost host(container_.socketPath());
  host.then(replies(R"({"ok":true})"));
  EXPECT_EQ(finishedOnWorker(remove(extension(), "f:F")).error.get(), nil);
  EXPECT_EQ(requestTo(host),
            (JSONObject{{"op", "delete"}, {"account", "42"}, {"ulid", "F"}, {"is_folder", true}}));
}

// Only a batch of thumbnails heeds it.
TEST_F(RequestTest, CancellingADownloadDoesNotEndIt) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, reply({{"ok", true}, {"path", source_}})));
  const Call call = fetch(extension(), "i:U");
  ASSERT_TRUE(host.waitForRequests(1));
  [call.progress.get() cancel];
  EXPECT_EQ([call.progress.get() completedUnitCount], 0);
  gate.open();
  EXPECT_EQ(text([finishedOnWorker(call).url.get() path]), source_);
}

TEST_F(RequestTest, DownloadsRunSideBySide) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, reply({{"ok", true}, {"path", source_}})));
  std::vector<Call> calls;
  for (int number = 0; number < 20; ++number) {
    calls.push_back(fetch(extension(), "i:" + std::to_string(number)));
  }
  EXPECT_TRUE(host.waitForRequests(20));
  gate.open();
  for (const Call &call : calls) EXPECT_EQ(text([finishedOnWorker(call).url.get() path]), source_);
}

class ThumbnailTest : public RequestTest {
 protected:
  static std::vector<std::string> described(const Answers &images) {
    std::vector<std::string> texts;
    for (const Answer &image : images.all()) {
      texts.push_back(text(image.identifier.get()) + ": " + text(image.data.get()) +
                      (image.error.get() == nil ? "" : " with an error"));
    }
    return texts;
  }

  std::string replyWithImage() const { return reply({{"ok", true}, {"path", source_}}); }
};

TEST_F(ThumbnailTest, ABatchIsAnsweredInOrderOnOneWorkerOfLowPriority) {
  FakeHost host(container_.socketPath());
  host.then(replies(replyWithImage()));
  const ThumbnailsCall call = fetchThumbnails(extension(), {"f:F", "i:U", "nonsense"});
  const Answer last = call.finished();
  EXPECT_EQ(last.error.get(), nil);
  EXPECT_EQ(last.qualityOfService, static_cast<qos_class_t>(QOS_CLASS_UTILITY));
  EXPECT_THAT(described(call.images),
              testing::ElementsAre("f:F: none", "i:U: the contents", "nonsense: none"));
  for (const Answer &image : call.images.all()) EXPECT_EQ(image.thread, last.thread);
  EXPECT_EQ([call.progress.get() totalUnitCount], 3);
  EXPECT_EQ([call.progress.get() completedUnitCount], 3);
  EXPECT_TRUE(eventually([&] { return call.answers.areReleased() && call.images.areReleased(); }));
}

TEST_F(ThumbnailTest, AnEmptyBatchHasOneCompletion) {
  const ThumbnailsCall call = fetchThumbnails(extension(), {});
  EXPECT_EQ(call.finished().error.get(), nil);
  EXPECT_TRUE(call.images.all().empty());
  EXPECT_EQ([call.progress.get() totalUnitCount], 0);
}

TEST_F(ThumbnailTest, CancellingTheSystemsProgressEndsTheBatch) {
  Gate gate;
  FakeHost host(container_.socketPath());
  host.then(repliesAfter(gate, replyWithImage()));
  const ThumbnailsCall call = fetchThumbnails(extension(), {"i:U", "i:V", "i:W"});
  ASSERT_TRUE(host.waitForRequests(1));
  [call.progress.get() cancel];
  gate.open();
  ASSERT_TRUE(call.answers.waitFor(1));
  EXPECT_EQ(call.answers.only().error.get(), nil);
  EXPECT_THAT(described(call.images), testing::ElementsAre("i:U: the contents"));
  EXPECT_EQ([call.progress.get() completedUnitCount], 1);
  EXPECT_EQ(host.connections(), 1U);
}

}  // namespace
}  // namespace tulo::test
