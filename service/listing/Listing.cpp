#include "service/listing/Listing.h"

#include <atomic>
#include <cstring>

namespace tulo {

namespace {

using platform::NSError;
using platform::NSFileProviderPage;

class Collector final : public platform::NSFileProviderEnumerationObserver,
                        public std::enable_shared_from_this<Collector> {
 public:
  Collector(std::shared_ptr<platform::NSFileProviderEnumerator> enumerator,
            ListingCompletion completion)
      : enumerator_(std::move(enumerator)), completion_(std::move(completion)) {}

  void begin(const NSFileProviderPage& page) {
    page_ = page;
    enumerator_->enumerateItems(shared_from_this(), page);
  }

  void didEnumerateItems(std::vector<platform::ItemPointer> items) override {
    listing_.items.reserve(listing_.items.size() + items.size());
    for (platform::ItemPointer& item : items) {
      if (item) listing_.items.push_back(recordOf(*item));
      item.reset();
    }
  }

  void finishEnumeratingUpToPage(std::optional<NSFileProviderPage> nextPage) override {
    if (nextPage && *nextPage != page_) {
      begin(*nextPage);
      return;
    }
    finish();
  }

  void finishEnumeratingWithError(const NSError& error) override {
    listing_.error = error;
    finish();
  }

 private:
  void finish() {
    if (finished_.exchange(true)) return;
    enumerator_->invalidate();
    completion_(std::move(listing_));
  }

  std::shared_ptr<platform::NSFileProviderEnumerator> enumerator_;
  ListingCompletion completion_;
  NSFileProviderPage page_;
  Listing listing_;
  std::atomic<bool> finished_ = false;
};

// Two independent multiplicative hashes over 8 bytes at a time.
class Digest {
 public:
  void add(std::string_view text) {
    add(static_cast<std::uint64_t>(text.size()));
    while (text.size() >= sizeof(std::uint64_t)) {
      std::uint64_t word = 0;
      std::memcpy(&word, text.data(), sizeof word);
      add(word);
      text.remove_prefix(sizeof word);
    }
    std::uint64_t rest = 0;
    if (!text.empty()) std::memcpy(&rest, text.data(), text.size());
    add(rest);
  }

  void add(std::uint64_t word) {
    first_ = mixed(first_ ^ word, 0x9fb21c651e98df25ULL);
    second_ = mixed(second_ + word, 0xd6e8feb86659fd93ULL);
  }

  std::string bytes() const {
    std::string result(2 * sizeof(std::uint64_t), '\0');
    std::memcpy(result.data(), &first_, sizeof first_);
    std::memcpy(result.data() + sizeof first_, &second_, sizeof second_);
    return result;
  }

 private:
  static std::uint64_t mixed(std::uint64_t value, std::uint64_t factor) {
    value ^= value >> 32;
    value *= factor;
    return value ^ (value >> 29);
  }

  std::uint64_t first_ = 0x243f6a8885a308d3ULL;
  std::uint64_t second_ = 0x13198a2e03707344ULL;
};

}  // namespace

ItemRecord recordOf(const platform::NSFileProviderItem& item) {
  ItemRecord record;
  record.identifier = item.itemIdentifier();
  record.parentIdentifier = item.parentItemIdentifier();
  record.filename = item.filename();
  const std::optional<platform::UTType> type = item.contentType();
  record.kind = type && *type == platform::UTType::folder() ? NodeKind::folder : NodeKind::file;
  record.size = item.documentSize().value_or(0);
  if (const auto date = item.contentModificationDate()) {
    record.modified = *date;
  }
  record.capabilities = item.capabilities();
  platform::NSFileProviderItemVersion version = item.itemVersion();
  record.contentVersion = std::move(version.contentVersion);
  record.metadataVersion = std::move(version.metadataVersion);
  return record;
}

std::string Listing::digest() const {
  Digest digest;
  for (const ItemRecord& item : items) {
    digest.add(item.identifier);
    digest.add(item.parentIdentifier);
    digest.add(item.filename);
    digest.add(static_cast<std::uint64_t>(item.kind));
    digest.add(static_cast<std::uint64_t>(item.size));
    digest.add(static_cast<std::uint64_t>(item.modified.time_since_epoch().count()));
    digest.add(item.capabilities);
    digest.add(item.contentVersion);
    digest.add(item.metadataVersion);
  }
  return digest.bytes();
}

void enumerate(platform::NSFileProviderReplicatedExtension& extension,
               const std::string& containerIdentifier, ListingCompletion completion) {
  auto collector = std::make_shared<Collector>(extension.enumerator(containerIdentifier, {}),
                                               std::move(completion));
  collector->begin({});
}

}  // namespace tulo
