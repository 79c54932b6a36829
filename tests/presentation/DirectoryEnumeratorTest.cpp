#include "presentation/DirectoryEnumerator.h"

#include <gmock/gmock.h>
#include <sqlite3.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "index/Index.h"
#include "platform/Deployment.h"
#include "tests/support/CaseName.h"
#include "tests/support/Container.h"
#include "tests/support/Descriptors.h"
#include "tests/support/IndexBuilder.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/SystemSide.h"

namespace tulo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string root = platform::NSFileProviderRootContainerItemIdentifier();
const std::string version(deployment::version);
constexpr const char* expiredMessage = "index changed, forcing re-enumeration";

class DirectoryEnumeratorTest : public testing::Test {
 protected:
  std::string path() const { return container_.file("state.db"); }
  IndexBuilder builder() const { return IndexBuilder(path()); }
  LogLine noIndex() const { return indexInfo("no index at " + path() + " yet"); }

  static std::shared_ptr<RecordingObserver> listed(const std::string& container) {
    const auto observer = std::make_shared<RecordingObserver>();
    DirectoryEnumerator(container, "state.db").enumerateItems(observer, "any page");
    return observer;
  }

  static std::shared_ptr<RecordingChangeObserver> changesSince(const std::string& anchor,
                                                               const std::string& in = root) {
    const auto observer = std::make_shared<RecordingChangeObserver>();
    DirectoryEnumerator(in, "state.db").enumerateChanges(observer, anchor);
    return observer;
  }

  static std::string anchorOf(const std::string& container) {
    const AnchorCalls calls;
    DirectoryEnumerator(container, "state.db").currentSyncAnchor(calls.callback());
    return calls.argument<0>().value();
  }

  Container container_;
  LogRecorder log_;
};

TEST_F(DirectoryEnumeratorTest, ListsTheTopLevelInOnePage) {
  builder()
      .folder("F", "Docs")
      .folder("G", "inner", "F")
      .file({.ulid = "01AAAAAA", .name = "docs"})
      .file({.ulid = "01BBBBBB", .name = "a.txt"});
  const auto observer = listed(root);
  EXPECT_THAT(observer->calls(), ElementsAre("items 3", "finished"));
  EXPECT_THAT(observer->filenames(), ElementsAre("Docs", "a.txt", "docs (AAAAAA)"));
  EXPECT_THAT(log_.lines(), ElementsAre(enumeratorInfo("enumerated 3 children of <root>")));
}

TEST_F(DirectoryEnumeratorTest, ListsAFolderByItsUlid) {
  builder()
      .folder("F", "Docs")
      .folder("G", "inner", "F")
      .file({"U", "a.pdf", "F", 5, 6, 7, 8})
      .file({.ulid = "V", .name = "elsewhere"});
  const auto observer = listed("f:F");
  EXPECT_THAT(observer->calls(), ElementsAre("items 2", "finished"));
  ASSERT_EQ(observer->items().size(), 2U);
  EXPECT_EQ(described(*observer->items()[0]),
            "f:G in f:F named inner type public.folder may 47 size none modified none uploaded"
            " version 0 / 0-inner");
  EXPECT_EQ(described(*observer->items()[1]),
            "i:U in f:F named a.pdf type com.adobe.pdf may 1 size 5 modified 6 uploaded"
            " version 7 / 7-a.pdf");
  EXPECT_THAT(log_.lines(), ElementsAre(enumeratorInfo("enumerated 2 children of F")));
}

TEST_F(DirectoryEnumeratorTest, AnEmptyIndexListsNothingAndSaysSo) {
  builder();
  EXPECT_THAT(listed(root)->calls(), ElementsAre("items 0", "finished"));
  EXPECT_THAT(log_.lines(), ElementsAre(enumeratorInfo("enumerated 0 children of <root>")));
}

TEST_F(DirectoryEnumeratorTest, AFolderWithoutChildrenListsNothingAndSaysSo) {
  builder().folder("F", "Docs");
  EXPECT_THAT(listed("f:F")->calls(), ElementsAre("items 0", "finished"));
  EXPECT_THAT(log_.lines(), ElementsAre(enumeratorInfo("enumerated 0 children of F")));
}

TEST_F(DirectoryEnumeratorTest, AnUnknownFolderIsLikeOneWithoutChildren) {
  builder().folder("F", "Docs");
  EXPECT_THAT(listed("f:nobody")->calls(), ElementsAre("items 0", "finished"));
  EXPECT_THAT(log_.lines(), ElementsAre(enumeratorInfo("enumerated 0 children of nobody")));
}

TEST_F(DirectoryEnumeratorTest, TheBareFolderPrefixIsTheNamelessFolder) {
  builder().folder("F", "top").folder("G", "in the nameless folder", "");
  EXPECT_THAT(listed("f:")->filenames(), ElementsAre("in the nameless folder"));
  EXPECT_THAT(log_.lines(), ElementsAre(enumeratorInfo("enumerated 1 children of ")));
}

struct ContainerCase {
  const char* title;
  std::string container;
};

class NoFolderTest : public DirectoryEnumeratorTest,
                     public testing::WithParamInterface<ContainerCase> {};

TEST_P(NoFolderTest, ListsNothingAndLogsNothing) {
  builder().folder("F", "Docs").file({.ulid = "U", .name = "a"});
  EXPECT_THAT(listed(GetParam().container)->calls(), ElementsAre("items 0", "finished"));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

// The index is opened first, and says itself that it is not there.
TEST_P(NoFolderTest, ListsNothingWithoutAnIndexAsWell) {
  EXPECT_THAT(listed(GetParam().container)->calls(), ElementsAre("items 0", "finished"));
  EXPECT_THAT(log_.lines(), ElementsAre(noIndex()));
}

INSTANTIATE_TEST_SUITE_P(Containers, NoFolderTest,
                         testing::ValuesIn<ContainerCase>({
                             {"File", "i:U"},
                             {"FileOfAFoldersUlid", "i:F"},
                             {"WorkingSet",
                              platform::NSFileProviderWorkingSetContainerItemIdentifier()},
                             {"Trash", platform::NSFileProviderTrashContainerItemIdentifier()},
                             {"Unparsable", "F"},
                             {"Empty", ""},
                             {"RootInAnotherCase", "nsfileproviderrootcontaineritemidentifier"},
                         }),
                         CaseName());

TEST_F(DirectoryEnumeratorTest, AMissingIndexLooksLikeAnEmptyFolder) {
  EXPECT_THAT(listed(root)->calls(), ElementsAre("items 0", "finished"));
  EXPECT_THAT(log_.lines(), ElementsAre(noIndex()));
}

TEST_F(DirectoryEnumeratorTest, AMissingContainerLooksLikeAnEmptyFolder) {
  container_.vanish();
  EXPECT_THAT(listed("f:F")->calls(), ElementsAre("items 0", "finished"));
  EXPECT_THAT(log_.lines(),
              ElementsAre(indexError("app group " + Index::appGroup() + " did not resolve")));
}

TEST_F(DirectoryEnumeratorTest, ReadsTheDatabaseThatItWasGiven) {
  IndexBuilder(container_.file("state-42.db")).folder("F", "of account 42");
  builder().folder("F", "of the primary account");
  const auto observer = std::make_shared<RecordingObserver>();
  DirectoryEnumerator(root, "state-42.db").enumerateItems(observer, "");
  EXPECT_THAT(observer->filenames(), ElementsAre("of account 42"));
}

TEST_F(DirectoryEnumeratorTest, DeliversALargeFolderInOnePage) {
  auto index = builder();
  index.execute("BEGIN");
  for (int i = 0; i < 20'000; ++i)
    index.file({.ulid = ulidOf(i), .name = ulidOf(i)});
  index.execute("COMMIT");
  EXPECT_THAT(listed(root)->calls(), ElementsAre("items 20000", "finished"));
}

TEST_F(DirectoryEnumeratorTest, SeesEachCommitAtTheNextListing) {
  auto index = builder();
  const auto enumerator = std::make_shared<DirectoryEnumerator>(root, "state.db");
  index.folder("F", "one");
  const auto first = std::make_shared<RecordingObserver>();
  enumerator->enumerateItems(first, "");
  index.folder("G", "two");
  enumerator->invalidate();
  const auto second = std::make_shared<RecordingObserver>();
  enumerator->enumerateItems(second, "");
  EXPECT_THAT(first->filenames(), ElementsAre("one"));
  EXPECT_THAT(second->filenames(), ElementsAre("one", "two"));
}

TEST_F(DirectoryEnumeratorTest, HoldsNothingOpenBetweenCalls) {
  builder().folder("F", "Docs");
  DirectoryEnumerator enumerator(root, "state.db");
  const auto before = openDescriptors();
  enumerator.enumerateItems(std::make_shared<RecordingObserver>(), "");
  enumerator.enumerateChanges(std::make_shared<RecordingChangeObserver>(), "");
  enumerator.currentSyncAnchor([](const auto&) {});
  EXPECT_LE(openDescriptors(), before);
}

TEST_F(DirectoryEnumeratorTest, CallsItsObserverOnTheCallingThread) {
  builder();
  const AnchorCalls calls;
  DirectoryEnumerator(root, "state.db").currentSyncAnchor(calls.callback());
  ASSERT_EQ(calls.count(), 1U);
  EXPECT_EQ(calls.calls().front().thread, std::this_thread::get_id());
}

// What a connection that has just been opened reports.
std::int64_t freshDataVersion(const std::string& path) {
  sqlite3* db = nullptr;
  sqlite3_stmt* statement = nullptr;
  EXPECT_EQ(sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
  EXPECT_EQ(sqlite3_prepare_v2(db, "PRAGMA data_version", -1, &statement, nullptr), SQLITE_OK);
  EXPECT_EQ(sqlite3_step(statement), SQLITE_ROW);
  const auto dataVersion = sqlite3_column_int64(statement, 0);
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return dataVersion;
}

TEST_F(DirectoryEnumeratorTest, TheAnchorIsTheVersionAndTheDataVersion) {
  builder().folder("F", "Docs");
  EXPECT_EQ(anchorOf(root), version + "|" + std::to_string(freshDataVersion(path())));
}

TEST_F(DirectoryEnumeratorTest, TheAnchorIsTheSameForEveryContainer) {
  builder().folder("F", "Docs");
  for (const std::string container : {"f:F", "i:U", "NSFileProviderWorkingSet", ""})
    EXPECT_EQ(anchorOf(container), anchorOf(root));
}

TEST_F(DirectoryEnumeratorTest, TheAnchorWithoutAnIndexHasTheDataVersionZero) {
  EXPECT_EQ(anchorOf(root), version + "|0");
  EXPECT_THAT(log_.lines(), ElementsAre(noIndex()));
}

TEST_F(DirectoryEnumeratorTest, TheAnchorOfAnUnreadableIndexHasTheDataVersionZero) {
  writeFile(path(), std::string(4096, 'x'));
  EXPECT_EQ(anchorOf(root), version + "|0");
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DirectoryEnumeratorTest, NoCommitMeansEqualAnchorsAndNoChanges) {
  builder().folder("F", "Docs");
  const std::string anchor = anchorOf(root);
  EXPECT_EQ(anchorOf(root), anchor);
  EXPECT_THAT(changesSince(anchor)->calls(), ElementsAre("finished at " + anchor));
  EXPECT_THAT(changesSince(anchor, "i:any")->calls(), ElementsAre("finished at " + anchor));
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(DirectoryEnumeratorTest, AnotherAnchorHasExpired) {
  builder();
  const std::string anchor = anchorOf(root);
  for (const std::string& other :
       {std::string(), "0.0.0" + anchor.substr(anchor.find('|')), anchor + " ", anchor.substr(1),
        anchor + std::string(1, '\0'), version + "|999", std::string("\xff\xfe")}) {
    log_.clear();
    const auto observer = changesSince(other);
    EXPECT_THAT(observer->calls(), ElementsAre("error -1002"));
    EXPECT_EQ(observer->error(),
              platform::fileProviderError(platform::NSFileProviderErrorCode::syncAnchorExpired));
    EXPECT_THAT(log_.lines(), ElementsAre(enumeratorInfo(expiredMessage)));
  }
}

TEST_F(DirectoryEnumeratorTest, AnAnchorExpiresWhenTheIndexDisappears) {
  builder().folder("F", "Docs");
  const std::string anchor = anchorOf(root);
  std::filesystem::remove(path());
  EXPECT_THAT(changesSince(anchor)->calls(), ElementsAre("error -1002"));
  EXPECT_THAT(listed(root)->calls(), ElementsAre("items 0", "finished"));
  EXPECT_THAT(log_.lines(), ElementsAre(noIndex(), enumeratorInfo(expiredMessage), noIndex()));
}

TEST_F(DirectoryEnumeratorTest, WithoutAnIndexTheZeroAnchorIsUpToDate) {
  EXPECT_THAT(changesSince(version + "|0")->calls(), ElementsAre("finished at " + version + "|0"));
}

TEST_F(DirectoryEnumeratorTest, ServesManyThreadsAtOnce) {
  builder().folder("F", "Docs").file({.ulid = "01AAAAAA", .name = "docs"});
  const auto enumerator = std::make_shared<DirectoryEnumerator>(root, "state.db");
  const std::string anchor = anchorOf(root);
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round) {
        const auto items = std::make_shared<RecordingObserver>();
        enumerator->enumerateItems(items, "");
        const auto changes = std::make_shared<RecordingChangeObserver>();
        enumerator->enumerateChanges(changes, anchor);
        if (items->filenames() != std::vector<std::string>{"Docs", "docs (AAAAAA)"}) ++wrong;
        if (changes->calls() != std::vector<std::string>{"finished at " + anchor}) ++wrong;
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace tulo::test
