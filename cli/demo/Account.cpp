#include "cli/demo/Account.h"

#include <chrono>
#include <future>
#include <utility>

#include "cli/GivenItem.h"

namespace tulo::cli::demo {
namespace {

using platform::ItemPointer;
using platform::NSError;
using platform::URL;

constexpr std::chrono::milliseconds watchInterval{50};

class Collector final : public platform::NSFileProviderEnumerationObserver {
 public:
  void didEnumerateItems(std::vector<ItemPointer> items) override {
    listing.items.insert(listing.items.end(), std::make_move_iterator(items.begin()),
                         std::make_move_iterator(items.end()));
  }
  void finishEnumeratingUpToPage(std::optional<platform::NSFileProviderPage>) override {
    finished.set_value();
  }
  void finishEnumeratingWithError(const NSError& error) override {
    listing.error = error;
    finished.set_value();
  }

  Account::Listing listing;
  std::promise<void> finished;
};

// A value that a callback hands over to the thread that waits for it. The callback's copy keeps it
// alive.
template <typename Value>
class Awaited {
 public:
  void set(Value value) const { promise_->set_value(std::move(value)); }
  std::future<Value> future() const { return promise_->get_future(); }

 private:
  std::shared_ptr<std::promise<Value>> promise_ = std::make_shared<std::promise<Value>>();
};

platform::MutationCompletion handOver(const Awaited<Account::Answer>& awaited) {
  return [awaited](const ItemPointer& item, platform::NSFileProviderItemFields, bool,
                   const std::optional<NSError>& error) {
    awaited.set({item, error});
  };
}

ItemPointer withName(const platform::NSFileProviderItem& item, const std::string& name,
                     const std::string& parent) {
  return std::make_shared<GivenItem>(item.itemIdentifier(), parent, name, item.contentType());
}

}  // namespace

Account::Account(std::shared_ptr<platform::NSFileProviderReplicatedExtension> extension,
                 std::shared_ptr<platform::NSFileProviderThumbnailing> thumbnailing)
    : extension_(std::move(extension)), thumbnailing_(std::move(thumbnailing)) {}

Account::Listing Account::list(const std::string& container) {
  const auto collector = std::make_shared<Collector>();
  extension_->enumerator(container, {})->enumerateItems(collector, {});
  collector->finished.get_future().wait();
  return std::move(collector->listing);
}

Account::Answer Account::item(const std::string& identifier) {
  const Awaited<Answer> awaited;
  extension_->item(identifier, {},
                   [awaited](const ItemPointer& item, const std::optional<NSError>& error) {
                     awaited.set({item, error});
                   });
  return awaited.future().get();
}

Account::Download Account::fetch(const std::string& identifier, const Watch& watch) {
  const Awaited<Download> awaited;
  const auto progress = extension_->fetchContents(
      identifier, std::nullopt, {},
      [awaited](const std::optional<URL>& contents, const ItemPointer& item,
                const std::optional<NSError>& error) {
        awaited.set({contents, item, error});
      });
  auto future = awaited.future();
  while (watch && future.wait_for(watchInterval) != std::future_status::ready)
    watch(*progress);
  return future.get();
}

Account::Answer Account::create(const ItemPointer& itemTemplate,
                                const std::optional<URL>& contents) {
  const Awaited<Answer> awaited;
  extension_->createItem(itemTemplate,
                         platform::NSFileProviderItemFilename |
                             platform::NSFileProviderItemParentItemIdentifier |
                             (contents ? platform::NSFileProviderItemContents : 0),
                         contents, 0, {}, handOver(awaited));
  return awaited.future().get();
}

Account::Answer Account::createFolder(const std::string& parent, const std::string& name) {
  return create(std::make_shared<GivenItem>("", parent, name, platform::UTType::folder()),
                std::nullopt);
}

Account::Answer Account::createFile(const std::string& parent, const std::string& name,
                                    const std::string& path) {
  return create(std::make_shared<GivenItem>("", parent, name, std::nullopt), URL(path));
}

Account::Answer Account::modify(const ItemPointer& changed,
                                platform::NSFileProviderItemFields fields,
                                const std::optional<URL>& contents) {
  const Awaited<Answer> awaited;
  const platform::NSFileProviderItemVersion base = changed->itemVersion();
  extension_->modifyItem(changed, base, fields, contents, 0, {}, handOver(awaited));
  return awaited.future().get();
}

Account::Answer Account::rename(const platform::NSFileProviderItem& item, const std::string& name) {
  return modify(withName(item, name, item.parentItemIdentifier()),
                platform::NSFileProviderItemFilename, std::nullopt);
}

Account::Answer Account::move(const platform::NSFileProviderItem& item, const std::string& parent) {
  return modify(withName(item, item.filename(), parent),
                platform::NSFileProviderItemParentItemIdentifier, std::nullopt);
}

Account::Answer Account::edit(const platform::NSFileProviderItem& item, const std::string& path) {
  return modify(withName(item, item.filename(), item.parentItemIdentifier()),
                platform::NSFileProviderItemContents, URL(path));
}

std::optional<NSError> Account::remove(const std::string& identifier) {
  const Awaited<std::optional<NSError>> awaited;
  extension_->deleteItem(identifier, {}, platform::NSFileProviderDeleteItemRecursive, {},
                         [awaited](const std::optional<NSError>& error) { awaited.set(error); });
  return awaited.future().get();
}

std::optional<platform::Data> Account::thumbnail(const std::string& identifier) {
  const auto image = std::make_shared<std::optional<platform::Data>>();
  const Awaited<bool> awaited;
  thumbnailing_->fetchThumbnails(
      {identifier}, {128, 128},
      [image](const std::string&, std::optional<platform::Data> data,
              const std::optional<NSError>&) { *image = std::move(data); },
      [awaited](const std::optional<NSError>& error) { awaited.set(!error); });
  awaited.future().wait();
  return *image;
}

}  // namespace tulo::cli::demo
