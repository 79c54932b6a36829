#include "tests/service/support/ScriptedExtension.h"

#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <thread>

namespace tulo::test {

using namespace platform;

namespace {

class Item final : public NSFileProviderItem {
 public:
  explicit Item(ScriptedItem item) : item_(std::move(item)) {}
  NSFileProviderItemIdentifier itemIdentifier() const override { return item_.identifier; }
  NSFileProviderItemIdentifier parentItemIdentifier() const override { return item_.parent; }
  std::string filename() const override { return item_.name; }
  std::optional<UTType> contentType() const override {
    return item_.isFolder ? UTType::folder() : UTType::data();
  }
  NSFileProviderItemCapabilities capabilities() const override { return item_.capabilities; }
  std::optional<std::int64_t> documentSize() const override {
    if (item_.isFolder) return std::nullopt;
    return item_.claimedSize.value_or(static_cast<std::int64_t>(item_.contents.size()));
  }
  std::optional<Date> contentModificationDate() const override {
    return Date(std::chrono::seconds(item_.modified));
  }
  NSFileProviderItemVersion itemVersion() const override {
    const std::string version = std::to_string(item_.version);
    return {version, version + '-' + item_.name};
  }

 private:
  const ScriptedItem item_;
};

}  // namespace

struct ScriptedExtension::State {
  std::string directory;
  // Guards everything below.
  mutable std::mutex mutex;
  std::condition_variable changed;
  std::map<std::string, ScriptedItem> items;
  std::optional<NSError> listingError;
  std::function<bool(const ScriptedItem&)> filter;
  std::deque<FetchScript> scripts;
  bool hold = false;
  std::size_t held = 0;
  std::size_t fetches = 0;
  std::size_t listings = 0;
  std::size_t files = 0;
  std::vector<std::thread> threads;

  std::string newPath() { return directory + "/fetched-" + std::to_string(++files); }
};

class ScriptedExtension::Enumerator final : public NSFileProviderEnumerator {
 public:
  Enumerator(std::shared_ptr<State> state, std::string container)
      : state_(std::move(state)), container_(std::move(container)) {}

  void invalidate() override {}

  void enumerateItems(const std::shared_ptr<NSFileProviderEnumerationObserver>& observer,
                      const NSFileProviderPage&) override {
    std::vector<ItemPointer> found;
    std::optional<NSError> error;
    {
      const std::scoped_lock lock(state_->mutex);
      ++state_->listings;
      error = state_->listingError;
      for (const auto& [identifier, item] : state_->items) {
        const bool shown = !state_->filter || state_->filter(item);
        if (item.parent == container_ && shown) found.push_back(std::make_shared<Item>(item));
      }
    }
    if (error) return observer->finishEnumeratingWithError(*error);
    observer->didEnumerateItems(std::move(found));
    observer->finishEnumeratingUpToPage(std::nullopt);
  }

  void enumerateChanges(const std::shared_ptr<NSFileProviderChangeObserver>& observer,
                        const NSFileProviderSyncAnchor&) override {
    observer->finishEnumeratingWithError(
        fileProviderError(NSFileProviderErrorCode::syncAnchorExpired));
  }

  void currentSyncAnchor(const std::function<void(std::optional<NSFileProviderSyncAnchor>)>&
                             completionHandler) override {
    completionHandler("anchor");
  }

 private:
  std::shared_ptr<State> state_;
  const std::string container_;
};

ScriptedExtension::ScriptedExtension(std::string directory) : state_(std::make_shared<State>()) {
  state_->directory = std::move(directory);
}

ScriptedExtension::~ScriptedExtension() {
  releaseFetches();
  std::vector<std::thread> threads;
  {
    const std::scoped_lock lock(state_->mutex);
    threads.swap(state_->threads);
  }
  for (std::thread& thread : threads) {
    // The last holder may be a completion on one of these threads.
    if (thread.get_id() == std::this_thread::get_id()) {
      thread.detach();
    } else {
      thread.join();
    }
  }
}

std::string ScriptedExtension::root() {
  return NSFileProviderRootContainerItemIdentifier();
}

std::string ScriptedExtension::put(ScriptedItem item) {
  const std::scoped_lock lock(state_->mutex);
  std::string identifier = item.identifier;
  state_->items[identifier] = std::move(item);
  return identifier;
}

std::string ScriptedExtension::folder(const std::string& identifier, const std::string& name,
                                      const std::string& parent) {
  return put({.identifier = identifier, .parent = parent, .name = name, .isFolder = true});
}

std::string ScriptedExtension::file(const std::string& identifier, const std::string& name,
                                    const std::string& contents, const std::string& parent) {
  return put({.identifier = identifier, .parent = parent, .name = name, .contents = contents});
}

void ScriptedExtension::remove(const std::string& identifier) {
  const std::scoped_lock lock(state_->mutex);
  state_->items.erase(identifier);
}

void ScriptedExtension::change(const std::string& identifier,
                               const std::function<void(ScriptedItem&)>& change) {
  const std::scoped_lock lock(state_->mutex);
  change(state_->items.at(identifier));
}

void ScriptedExtension::edit(const std::string& identifier, const std::string& contents) {
  change(identifier, [&](ScriptedItem& item) {
    item.contents = contents;
    ++item.version;
  });
}

void ScriptedExtension::setListingError(std::optional<NSError> error) {
  const std::scoped_lock lock(state_->mutex);
  state_->listingError = std::move(error);
}

void ScriptedExtension::setListingFilter(std::function<bool(const ScriptedItem&)> filter) {
  const std::scoped_lock lock(state_->mutex);
  state_->filter = std::move(filter);
}

void ScriptedExtension::scriptFetch(FetchScript script) {
  const std::scoped_lock lock(state_->mutex);
  state_->scripts.push_back(std::move(script));
}

void ScriptedExtension::holdFetches() {
  const std::scoped_lock lock(state_->mutex);
  state_->hold = true;
}

void ScriptedExtension::releaseFetches() {
  const std::scoped_lock lock(state_->mutex);
  state_->hold = false;
  state_->changed.notify_all();
}

std::size_t ScriptedExtension::heldFetches() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->held;
}

std::size_t ScriptedExtension::fetchCount() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->fetches;
}

std::size_t ScriptedExtension::listingCount() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->listings;
}

std::shared_ptr<Progress> ScriptedExtension::item(const NSFileProviderItemIdentifier& identifier,
                                                  const NSFileProviderRequest&,
                                                  const ItemCompletion& completionHandler) {
  std::shared_ptr<Item> found;
  {
    const std::scoped_lock lock(state_->mutex);
    const auto at = state_->items.find(identifier);
    if (at != state_->items.end()) found = std::make_shared<Item>(at->second);
  }
  if (found) {
    completionHandler(found, std::nullopt);
  } else {
    completionHandler(nullptr, fileProviderError(NSFileProviderErrorCode::noSuchItem));
  }
  return Progress::withTotalUnitCount(1);
}

std::shared_ptr<NSFileProviderEnumerator> ScriptedExtension::enumerator(
    const NSFileProviderItemIdentifier& container, const NSFileProviderRequest&) {
  return std::make_shared<Enumerator>(state_, container);
}

std::shared_ptr<Progress> ScriptedExtension::fetchContents(
    const NSFileProviderItemIdentifier& itemIdentifier,
    const std::optional<NSFileProviderItemVersion>&, const NSFileProviderRequest&,
    FetchCompletion completionHandler) {
  const auto work = [state = state_, itemIdentifier, completionHandler] {
    FetchScript script;
    {
      std::unique_lock lock(state->mutex);
      ++state->fetches;
      ++state->held;
      state->changed.wait(lock, [&] { return !state->hold; });
      --state->held;
      if (!state->scripts.empty()) {
        script = std::move(state->scripts.front());
        state->scripts.pop_front();
      }
    }
    if (script.before) script.before();
    std::string path;
    std::optional<ScriptedItem> item;
    {
      const std::scoped_lock lock(state->mutex);
      path = state->newPath();
      const auto at = state->items.find(itemIdentifier);
      if (at != state->items.end()) item = at->second;
    }
    if (script.error) return completionHandler(std::nullopt, nullptr, script.error);
    if (script.noFile) return completionHandler(std::nullopt, nullptr, std::nullopt);
    if (!item) {
      return completionHandler(std::nullopt, nullptr,
                               fileProviderError(NSFileProviderErrorCode::noSuchItem));
    }
    if (script.directory) {
      std::filesystem::create_directory(path);
    } else if (!script.missingFile) {
      std::ofstream(path, std::ios::binary) << script.bytes.value_or(item->contents);
    }
    if (script.hardLink) std::filesystem::create_hard_link(path, path + "-original");
    completionHandler(URL(path), script.noItem ? nullptr : std::make_shared<Item>(*item),
                      std::nullopt);
  };
  const std::scoped_lock lock(state_->mutex);
  state_->threads.emplace_back(work);
  return Progress::withTotalUnitCount(1);
}

std::shared_ptr<Progress> ScriptedExtension::createItem(const ItemPointer&,
                                                        NSFileProviderItemFields,
                                                        const std::optional<URL>&,
                                                        NSFileProviderCreateItemOptions,
                                                        const NSFileProviderRequest&,
                                                        MutationCompletion completionHandler) {
  completionHandler(nullptr, 0, false,
                    fileProviderError(NSFileProviderErrorCode::cannotSynchronize));
  return Progress::withTotalUnitCount(1);
}

std::shared_ptr<Progress> ScriptedExtension::modifyItem(
    const ItemPointer&, const NSFileProviderItemVersion&, NSFileProviderItemFields,
    const std::optional<URL>&, NSFileProviderModifyItemOptions, const NSFileProviderRequest&,
    MutationCompletion completionHandler) {
  completionHandler(nullptr, 0, false,
                    fileProviderError(NSFileProviderErrorCode::cannotSynchronize));
  return Progress::withTotalUnitCount(1);
}

std::shared_ptr<Progress> ScriptedExtension::deleteItem(const NSFileProviderItemIdentifier&,
                                                        const NSFileProviderItemVersion&,
                                                        NSFileProviderDeleteItemOptions,
                                                        const NSFileProviderRequest&,
                                                        DeleteCompletion completionHandler) {
  completionHandler(fileProviderError(NSFileProviderErrorCode::cannotSynchronize));
  return Progress::withTotalUnitCount(1);
}

}  // namespace tulo::test
