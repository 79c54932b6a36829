#include "service/listing/Listing.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tulo::test {
namespace {

using namespace platform;

class NamedItem final : public NSFileProviderItem {
 public:
  explicit NamedItem(std::string name) : name_(std::move(name)) {}
  NSFileProviderItemIdentifier itemIdentifier() const override { return "i:" + name_; }
  NSFileProviderItemIdentifier parentItemIdentifier() const override { return "f:1"; }
  std::string filename() const override { return name_; }
  std::optional<UTType> contentType() const override { return std::nullopt; }
  NSFileProviderItemCapabilities capabilities() const override { return 3; }
  NSFileProviderItemVersion itemVersion() const override { return {"content", "metadata"}; }

 private:
  const std::string name_;
};

// Pages of one item each; a page is the number of its item.
class PagedEnumerator final : public NSFileProviderEnumerator {
 public:
  PagedEnumerator(std::size_t pages, bool& invalidated)
      : pages_(pages), invalidated_(invalidated) {}

  void invalidate() override { invalidated_ = true; }
  void enumerateItems(const std::shared_ptr<NSFileProviderEnumerationObserver>& observer,
                      const NSFileProviderPage& page) override {
    const std::size_t number = page.empty() ? 0 : std::stoul(page);
    observer->didEnumerateItems({std::make_shared<NamedItem>(std::to_string(number)), nullptr});
    if (failsAt == number) return observer->finishEnumeratingWithError({"Domain", 7, {}});
    const bool more = number + 1 < pages_ || endless;
    const std::size_t next = number + 1 < pages_ ? number + 1 : number;
    observer->finishEnumeratingUpToPage(more ? std::optional(std::to_string(next)) : std::nullopt);
    if (repeats) observer->finishEnumeratingUpToPage(std::nullopt);
  }
  void enumerateChanges(const std::shared_ptr<NSFileProviderChangeObserver>&,
                        const NSFileProviderSyncAnchor&) override {}
  void currentSyncAnchor(
      const std::function<void(std::optional<NSFileProviderSyncAnchor>)>&) override {}

  std::optional<std::size_t> failsAt;
  bool endless = false;  // the last page names itself as the next one
  bool repeats = false;  // says twice that it is through

 private:
  const std::size_t pages_;
  bool& invalidated_;
};

// Everything but the listing is nobody's business here.
class PagedExtension final : public NSFileProviderReplicatedExtension {
 public:
  explicit PagedExtension(std::shared_ptr<PagedEnumerator> pages) : pages_(std::move(pages)) {}

  void invalidate() override {}
  std::shared_ptr<Progress> item(const NSFileProviderItemIdentifier&, const NSFileProviderRequest&,
                                 const ItemCompletion&) override {
    return nullptr;
  }
  std::shared_ptr<NSFileProviderEnumerator> enumerator(const NSFileProviderItemIdentifier&,
                                                       const NSFileProviderRequest&) override {
    return pages_;
  }
  std::shared_ptr<Progress> fetchContents(const NSFileProviderItemIdentifier&,
                                          const std::optional<NSFileProviderItemVersion>&,
                                          const NSFileProviderRequest&, FetchCompletion) override {
    return nullptr;
  }
  std::shared_ptr<Progress> createItem(const ItemPointer&, NSFileProviderItemFields,
                                       const std::optional<URL>&, NSFileProviderCreateItemOptions,
                                       const NSFileProviderRequest&, MutationCompletion) override {
    return nullptr;
  }
  std::shared_ptr<Progress> modifyItem(const ItemPointer&, const NSFileProviderItemVersion&,
                                       NSFileProviderItemFields, const std::optional<URL>&,
                                       NSFileProviderModifyItemOptions,
                                       const NSFileProviderRequest&, MutationCompletion) override {
    return nullptr;
  }
  std::shared_ptr<Progress> deleteItem(const NSFileProviderItemIdentifier&,
                                       const NSFileProviderItemVersion&,
                                       NSFileProviderDeleteItemOptions,
                                       const NSFileProviderRequest&, DeleteCompletion) override {
    return nullptr;
  }

 private:
  std::shared_ptr<PagedEnumerator> pages_;
};

class ListingTest : public ::testing::Test {
 protected:
  std::vector<Listing> enumerated(const std::shared_ptr<PagedEnumerator>& pages) {
    PagedExtension extension(pages);
    std::vector<Listing> listings;
    enumerate(extension, "f:1", [&](Listing listing) { listings.push_back(std::move(listing)); });
    return listings;
  }
  std::shared_ptr<PagedEnumerator> pages(std::size_t count) {
    return std::make_shared<PagedEnumerator>(count, invalidated);
  }

  bool invalidated = false;
};

TEST_F(ListingTest, GathersAllPagesInTheirOrder) {
  const auto listings = enumerated(pages(3));
  ASSERT_EQ(listings.size(), 1U);
  ASSERT_EQ(listings.front().items.size(), 3U);
  EXPECT_EQ(listings.front().items[0].filename, "0");
  EXPECT_EQ(listings.front().items[2].filename, "2");
  EXPECT_FALSE(listings.front().error);
  EXPECT_TRUE(invalidated);
}

TEST_F(ListingTest, APageThatNamesItselfAsTheNextIsTheLast) {
  const auto endless = pages(2);
  endless->endless = true;
  const auto listings = enumerated(endless);
  ASSERT_EQ(listings.size(), 1U);
  EXPECT_EQ(listings.front().items.size(), 2U);
}

TEST_F(ListingTest, AnErrorOnAnyPageIsTheListings) {
  const auto failing = pages(3);
  failing->failsAt = 1;
  const auto listings = enumerated(failing);
  ASSERT_EQ(listings.size(), 1U);
  ASSERT_TRUE(listings.front().error);
  EXPECT_EQ(listings.front().error->code, 7);
}

TEST_F(ListingTest, AProviderThatEndsTwiceIsAnsweredOnce) {
  const auto twice = pages(1);
  twice->repeats = true;
  EXPECT_EQ(enumerated(twice).size(), 1U);
}

TEST_F(ListingTest, WhatAnItemDoesNotSayIsAnEmptyFileOfNoTime) {
  const ItemRecord record = recordOf(NamedItem("a"));
  EXPECT_EQ(record.identifier, "i:a");
  EXPECT_EQ(record.parentIdentifier, "f:1");
  EXPECT_EQ(record.kind, NodeKind::file);
  EXPECT_EQ(record.size, 0);
  EXPECT_EQ(record.capabilities, 3U);
  EXPECT_EQ(record.contentVersion, "content");
  EXPECT_EQ(record.metadataVersion, "metadata");
}

class DigestTest : public ::testing::Test {
 protected:
  DigestTest() {
    for (const char* name : {"a", "b"})
      listing.items.push_back(recordOf(NamedItem(name)));
  }
  Listing listing;
};

TEST_F(DigestTest, EqualListingsHaveTheSame) {
  EXPECT_EQ(listing.digest(), Listing(listing).digest());
  EXPECT_EQ(listing.digest().size(), 16U);
}

TEST_F(DigestTest, EveryPropertyAndTheOrderCount) {
  const std::string before = listing.digest();
  const auto differs = [&](auto&& change) {
    Listing other = listing;
    change(other.items.back());
    return other.digest() != before;
  };
  EXPECT_TRUE(differs([](ItemRecord& item) { item.identifier += 'x'; }));
  EXPECT_TRUE(differs([](ItemRecord& item) { item.parentIdentifier += 'x'; }));
  EXPECT_TRUE(differs([](ItemRecord& item) { item.filename += 'x'; }));
  EXPECT_TRUE(differs([](ItemRecord& item) { item.kind = NodeKind::folder; }));
  EXPECT_TRUE(differs([](ItemRecord& item) { item.size += 1; }));
  EXPECT_TRUE(differs([](ItemRecord& item) { item.capabilities += 1; }));
  EXPECT_TRUE(differs([](ItemRecord& item) { item.contentVersion += 'x'; }));
  EXPECT_TRUE(differs([](ItemRecord& item) { item.metadataVersion += 'x'; }));
  std::swap(listing.items.front(), listing.items.back());
  EXPECT_NE(listing.digest(), before);
}

}  // namespace
}  // namespace tulo::test
