#include "service/desktop/ThumbnailBatcher.h"

#include <atomic>
#include <filesystem>

#include "tests/service/Pictures.h"
#include "tests/service/support/Times.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

using Identifiers = std::vector<std::string>;

// A provider that gives every file a picture, except those named otherwise.
class Provider : public platform::NSFileProviderThumbnailing {
 public:
  std::shared_ptr<platform::Progress> fetchThumbnails(
      Identifiers itemIdentifiers, platform::Size requestedSize,
      platform::PerThumbnailCompletion perThumbnail,
      platform::ThumbnailsCompletion completion) override {
    requests.push_back(itemIdentifiers);
    size = requestedSize;
    progress =
        platform::Progress::withTotalUnitCount(static_cast<std::int64_t>(itemIdentifiers.size()));
    if (holdsBack) {
      heldBack = completion;
      holding = true;
      return progress;
    }
    for (const std::string& identifier : itemIdentifiers) {
      std::optional<platform::Data> image;
      if (!identifier.ends_with("none")) image = picture(300, 300);
      if (identifier.ends_with("damaged")) image = "no picture";
      perThumbnail(identifier, image, std::nullopt);
    }
    completion(std::nullopt);
    return progress;
  }

  std::vector<Identifiers> requests;
  platform::Size size;
  std::shared_ptr<platform::Progress> progress;
  bool holdsBack = false;
  platform::ThumbnailsCompletion heldBack;
  std::atomic<bool> holding = false;
};

ThumbnailFile file(const std::string& identifier, std::int64_t modified = 1000) {
  return {identifier, {"/mount/" + identifier, atSecond(modified), 10}};
}

// All files in one page.
ThumbnailPages pages(std::vector<ThumbnailFile> files) {
  return [files = std::move(files)]() mutable { return std::exchange(files, {}); };
}

std::vector<ThumbnailFile> numbered(int count) {
  std::vector<ThumbnailFile> files;
  for (int i = 0; i < count; ++i)
    files.push_back(file("f:" + std::to_string(i)));
  return files;
}

class ThumbnailBatcherTest : public testing::Test {
 protected:
  void stepToEnd() {
    while (batcher_.step()) {
    }
  }

  TemporaryDirectory folder_;
  DesktopThumbnails desktop_{folder_.file("thumbnails")};
  std::shared_ptr<Provider> provider_ = std::make_shared<Provider>();
  std::chrono::steady_clock::time_point now_{};
  ThumbnailBatcher batcher_{provider_, desktop_, [this] { return now_; }};
};

TEST_F(ThumbnailBatcherTest, DoesNothingWithoutAFolder) {
  EXPECT_FALSE(batcher_.step());
  EXPECT_THAT(provider_->requests, testing::IsEmpty());
}

TEST_F(ThumbnailBatcherTest, PutsThumbnailsWhereTheDesktopLooks) {
  batcher_.listed(1, pages({file("f:a"), file("f:b")}));
  stepToEnd();
  EXPECT_TRUE(desktop_.has(file("f:a").original));
  EXPECT_TRUE(desktop_.has(file("f:b").original));
  EXPECT_EQ(provider_->size.width, 256);
  EXPECT_EQ(provider_->size.height, 256);
}

TEST_F(ThumbnailBatcherTest, AsksInBatches) {
  batcher_.listed(1, pages(numbered(70)));
  stepToEnd();
  ASSERT_EQ(provider_->requests.size(), 3U);
  EXPECT_EQ(provider_->requests[0].size(), 32U);
  EXPECT_EQ(provider_->requests[1].size(), 32U);
  EXPECT_EQ(provider_->requests[2].size(), 6U);
}

TEST_F(ThumbnailBatcherTest, OneStepIsOneBatch) {
  batcher_.listed(1, pages(numbered(70)));
  EXPECT_TRUE(batcher_.step());
  EXPECT_EQ(provider_->requests.size(), 1U);
}

TEST_F(ThumbnailBatcherTest, ReadsAFolderPageByPage) {
  int page = 0;
  batcher_.listed(1, [&]() -> std::vector<ThumbnailFile> {
    ++page;
    if (page > 3) return {};
    return {file("f:" + std::to_string(page))};
  });
  stepToEnd();
  EXPECT_THAT(provider_->requests, testing::ElementsAre(Identifiers{"f:1", "f:2", "f:3"}));
}

TEST_F(ThumbnailBatcherTest, SkipsWhatIsThereAndUnchanged) {
  batcher_.listed(1, pages({file("f:a"), file("f:b")}));
  stepToEnd();
  batcher_.listed(1, pages({file("f:a"), file("f:b", 2000), file("f:c")}));
  stepToEnd();
  ASSERT_EQ(provider_->requests.size(), 2U);
  EXPECT_EQ(provider_->requests[1], (Identifiers{"f:b", "f:c"}));
  EXPECT_TRUE(desktop_.has(file("f:b", 2000).original));
}

TEST_F(ThumbnailBatcherTest, DoesNotAskAgainForWhatTheHostDoesNotHave) {
  const std::vector<ThumbnailFile> files = {file("f:none"), file("f:damaged")};
  batcher_.listed(1, pages(files));
  stepToEnd();
  batcher_.listed(1, pages(files));
  stepToEnd();
  EXPECT_EQ(provider_->requests.size(), 1U);
  EXPECT_FALSE(desktop_.has(file("f:none").original));
  EXPECT_FALSE(std::filesystem::exists(folder_.file("thumbnails")));
}

TEST_F(ThumbnailBatcherTest, AsksAgainForAChangedFile) {
  batcher_.listed(1, pages({file("f:none")}));
  stepToEnd();
  batcher_.listed(1, pages({file("f:none", 2000)}));
  stepToEnd();
  EXPECT_EQ(provider_->requests.size(), 2U);
}

TEST_F(ThumbnailBatcherTest, AsksAgainAfterAWhile) {
  batcher_.listed(1, pages({file("f:none")}));
  stepToEnd();
  now_ += ThumbnailMisses::kRemembered;
  batcher_.listed(1, pages({file("f:none")}));
  stepToEnd();
  EXPECT_EQ(provider_->requests.size(), 2U);
}

TEST_F(ThumbnailBatcherTest, AsksAgainWhenTheHostCameBack) {
  batcher_.listed(1, pages({file("f:none")}));
  stepToEnd();
  batcher_.forgetMisses();
  batcher_.listed(1, pages({file("f:none")}));
  stepToEnd();
  EXPECT_EQ(provider_->requests.size(), 2U);
}

TEST_F(ThumbnailBatcherTest, TheFolderListedLastComesFirst) {
  batcher_.listed(1, pages({file("f:first")}));
  batcher_.listed(2, pages({file("f:second")}));
  stepToEnd();
  EXPECT_THAT(provider_->requests, testing::ElementsAre(Identifiers{"f:second", "f:first"}));
}

TEST_F(ThumbnailBatcherTest, AFolderWaitsOnce) {
  batcher_.listed(1, pages({file("f:old")}));
  batcher_.listed(1, pages({file("f:new")}));
  stepToEnd();
  EXPECT_THAT(provider_->requests, testing::ElementsAre(Identifiers{"f:new"}));
}

TEST_F(ThumbnailBatcherTest, AWalkOverTheTreeLeavesTheLastFoldersOnly) {
  for (std::uint64_t i = 1; i <= ThumbnailBatcher::kMostFolders + 10; ++i) {
    batcher_.listed(i, pages({file("f:" + std::to_string(i))}));
  }
  stepToEnd();
  std::size_t asked = 0;
  for (const Identifiers& request : provider_->requests)
    asked += request.size();
  EXPECT_EQ(asked, ThumbnailBatcher::kMostFolders);
  EXPECT_FALSE(desktop_.has(file("f:10").original));
  EXPECT_TRUE(desktop_.has(file("f:11").original));
}

TEST_F(ThumbnailBatcherTest, StoppingEndsABatchThatRuns) {
  provider_->holdsBack = true;
  batcher_.listed(1, pages({file("f:a")}));
  batcher_.start();
  ASSERT_TRUE(eventually([this] { return provider_->holding.load(); }));
  batcher_.stop();
  EXPECT_TRUE(provider_->progress->isCancelled());
  provider_->heldBack(std::nullopt);
  EXPECT_FALSE(batcher_.step());
}

TEST_F(ThumbnailBatcherTest, NothingIsAskedAfterStopping) {
  batcher_.listed(1, pages(numbered(3)));
  batcher_.stop();
  batcher_.listed(2, pages(numbered(3)));
  EXPECT_FALSE(batcher_.step());
  EXPECT_THAT(provider_->requests, testing::IsEmpty());
}

TEST_F(ThumbnailBatcherTest, MayBeStoppedBeforeItStarts) {
  batcher_.stop();
  batcher_.stop();
}

TEST_F(ThumbnailBatcherTest, RunsByItself) {
  batcher_.start();
  batcher_.listed(1, pages(numbered(40)));
  EXPECT_TRUE(eventually([this] {
    const auto files = numbered(40);
    return std::all_of(files.begin(), files.end(),
                       [this](const auto& each) { return desktop_.has(each.original); });
  }));
  batcher_.stop();
}

}  // namespace
}  // namespace tulo::test
