#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "tests/service/control/ControlFixture.h"

namespace tulo::test {
namespace {

using control::FilesProgress;
using control::FilesReply;

class DownloadOperationTest : public ControlFixture {
 protected:
  FilesReply download(std::vector<NodeId> named) {
    return control::download(parts(), files(std::move(named)), [this](const FilesProgress& told) {
      progress.push_back(told);
      return listening;
    });
  }

  std::vector<FilesProgress> progress;
  bool listening = true;
};

TEST_F(DownloadOperationTest, AFolderBringsAllThatIsInIt) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.txt", "one", "f:1");
  extension->file("i:2", "b.txt", "two", "f:1");
  list();
  const FilesReply reply = download({idOf("f:1")});
  EXPECT_TRUE(reply.outcome.ok);
  EXPECT_EQ(reply.files, 2U);
  EXPECT_EQ(contentsOf(idOf("i:1")), "one");
  EXPECT_EQ(contentsOf(idOf("i:2")), "two");
}

TEST_F(DownloadOperationTest, TheProgressEndsWithAll) {
  for (int i = 0; i < 40; ++i)
    extension->file("i:" + std::to_string(i), "f" + std::to_string(i), "x");
  list();
  download({kRootNode});
  ASSERT_FALSE(progress.empty());
  EXPECT_EQ(progress.back(), (FilesProgress{40, 40}));
}

TEST_F(DownloadOperationTest, TheProgressEndsWithAllHoweverFastTheListenerIsOvertaken) {
  for (int i = 0; i < 8; ++i)
    extension->file("i:" + std::to_string(i), "f" + std::to_string(i), "x");
  list();
  control::download(parts(), files({kRootNode}), [&](const FilesProgress& told) {
    progress.push_back(told);
    // Whatever is still under way ends while somebody is being told.
    std::this_thread::sleep_for(milliseconds(20));
    return true;
  });
  EXPECT_EQ(progress.back(), (FilesProgress{8, 8}));
}

TEST_F(DownloadOperationTest, AFileThatFailsIsNamedAndLeavesTheOthers) {
  extension->file("i:1", "a.txt", "one");
  extension->file("i:2", "b.txt", "two");
  list();
  extension->scriptFetch(
      {.error = platform::fileProviderError(platform::NSFileProviderErrorCode::cannotSynchronize)});
  const FilesReply reply = download({idOf("i:1"), idOf("i:2")});
  EXPECT_FALSE(reply.outcome.ok);
  ASSERT_EQ(reply.outcome.failures->size(), 1U);
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(DownloadOperationTest, WhoDoesNotListenAnyMoreGetsNoFurtherFiles) {
  for (int i = 0; i < 40; ++i)
    extension->file("i:" + std::to_string(i), "f" + std::to_string(i), "x");
  list();
  std::vector<NodeId> all;
  for (int i = 0; i < 40; ++i)
    all.push_back(idOf("i:" + std::to_string(i)));
  extension->holdFetches();
  std::atomic<bool> gone = false;
  auto reply = std::async(std::launch::async, [&] {
    return control::download(parts(), files(all), [&](const FilesProgress& told) {
      gone = told.total == all.size();
      return !gone;
    });
  });
  ASSERT_TRUE(eventually([&] { return gone.load(); }));
  extension->releaseFetches();
  EXPECT_EQ(reply.get().files, 40U);
  EXPECT_LT(extension->fetchCount(), 40U);
}

TEST_F(DownloadOperationTest, NothingIsDoneAtOnce) {
  EXPECT_EQ(download({}), (FilesReply{control::Outcome::with({}), 0}));
  EXPECT_TRUE(progress.empty());
}

}  // namespace
}  // namespace tulo::test
