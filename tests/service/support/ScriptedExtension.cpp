#include "tests/service/support/ScriptedExtension.h"

#include <algorithm>
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
  std::function<void()> afterListing;
  std::function<bool(const ScriptedItem&)> filter;
  std::deque<FetchScript> scripts;
  bool hold = false;
  std::function<void()> whenFetching;
  std::size_t held = 0;
  std::size_t fetches = 0;
  std::size_t listings = 0;
  std::size_t files = 0;
  std::size_t created = 0;
  std::vector<std::thread> threads;
  std::deque<MutationScript> mutationScripts;
  std::optional<MutationScript> everyMutation;
  std::vector<Mutation> mutations;
  std::optional<NSError> lookUpError;

  MutationScript nextScript() {
    if (mutationScripts.empty()) return everyMutation.value_or(MutationScript());
    MutationScript script = std::move(mutationScripts.front());
    mutationScripts.pop_front();
    return script;
  }

  bool hasFolder(const std::string& identifier) const {
    return identifier == root() || items.contains(identifier);
  }

  void apply(const Mutation& mutation, ScriptedItem& item) {
    if (mutation.contents) {
      item.contents = *mutation.contents;
      if (mutation.kind == Mutation::Kind::modify) ++item.version;
    }
    if ((mutation.fields & NSFileProviderItemFilename) != 0) item.name = mutation.name;
    if ((mutation.fields & NSFileProviderItemParentItemIdentifier) != 0) {
      item.parent = mutation.parent;
    }
  }

  std::string newPath() {
    const std::string folder = directory + "/fp-download";
    std::filesystem::create_directory(folder);
    return folder + "/fetched-" + std::to_string(++files);
  }
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
    std::function<void()> afterwards;
    {
      const std::scoped_lock lock(state_->mutex);
      ++state_->listings;
      error = state_->listingError;
      for (const auto& [identifier, item] : state_->items) {
        const bool shown = !state_->filter || state_->filter(item);
        if (item.parent == container_ && shown) found.push_back(std::make_shared<Item>(item));
      }
      afterwards.swap(state_->afterListing);
    }
    if (afterwards) afterwards();
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

void ScriptedExtension::afterNextListing(std::function<void()> action) {
  const std::scoped_lock lock(state_->mutex);
  state_->afterListing = std::move(action);
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

void ScriptedExtension::whenFetching(std::function<void()> asked) {
  const std::scoped_lock lock(state_->mutex);
  state_->whenFetching = std::move(asked);
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
  std::optional<NSError> error;
  {
    const std::scoped_lock lock(state_->mutex);
    error = state_->lookUpError;
    const auto at = state_->items.find(identifier);
    if (at != state_->items.end()) found = std::make_shared<Item>(at->second);
  }
  if (error) {
    completionHandler(nullptr, error);
  } else if (found) {
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
  std::function<void()> asked;
  {
    const std::scoped_lock lock(state_->mutex);
    asked = state_->whenFetching;
  }
  if (asked) asked();
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
      path = script.path.value_or(state->newPath());
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
    } else if (!script.missingFile && !script.path) {
      std::ofstream(path, std::ios::binary) << script.bytes.value_or(item->contents);
    }
    if (script.hardLink) std::filesystem::create_hard_link(path, path + "-original");
    if (script.after) script.after();
    completionHandler(URL(path), script.noItem ? nullptr : std::make_shared<Item>(*item),
                      std::nullopt);
  };
  const std::scoped_lock lock(state_->mutex);
  state_->threads.emplace_back(work);
  return Progress::withTotalUnitCount(1);
}

void ScriptedExtension::scriptMutation(MutationScript script) {
  const std::scoped_lock lock(state_->mutex);
  state_->mutationScripts.push_back(std::move(script));
}

void ScriptedExtension::scriptMutations(std::optional<MutationScript> always) {
  const std::scoped_lock lock(state_->mutex);
  state_->everyMutation = std::move(always);
}

std::vector<ScriptedExtension::Mutation> ScriptedExtension::mutations() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->mutations;
}

void ScriptedExtension::forgetMutations() {
  const std::scoped_lock lock(state_->mutex);
  state_->mutations.clear();
}

void ScriptedExtension::setLookUpError(std::optional<NSError> error) {
  const std::scoped_lock lock(state_->mutex);
  state_->lookUpError = std::move(error);
}

std::optional<ScriptedItem> ScriptedExtension::find(const std::string& identifier) const {
  const std::scoped_lock lock(state_->mutex);
  const auto at = state_->items.find(identifier);
  return at == state_->items.end() ? std::nullopt : std::optional<ScriptedItem>(at->second);
}

std::int64_t ScriptedExtension::countIn(const std::string& folder) const {
  const std::scoped_lock lock(state_->mutex);
  return std::count_if(state_->items.begin(), state_->items.end(),
                       [&](const auto& item) { return item.second.parent == folder; });
}

std::vector<ScriptedItem> ScriptedExtension::named(const std::string& name) const {
  const std::scoped_lock lock(state_->mutex);
  std::vector<ScriptedItem> result;
  for (const auto& [identifier, item] : state_->items) {
    if (item.name == name) result.push_back(item);
  }
  return result;
}

namespace {

std::optional<std::string> bytesOf(const std::optional<URL>& contents) {
  if (!contents) return std::nullopt;
  std::ifstream file(contents->path(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

std::shared_ptr<Progress> ScriptedExtension::createItem(const ItemPointer& itemTemplate,
                                                        NSFileProviderItemFields fields,
                                                        const std::optional<URL>& contents,
                                                        NSFileProviderCreateItemOptions,
                                                        const NSFileProviderRequest&,
                                                        MutationCompletion completionHandler) {
  const Mutation mutation{Mutation::Kind::create,
                          {},
                          itemTemplate->parentItemIdentifier(),
                          itemTemplate->filename(),
                          bytesOf(contents),
                          fields,
                          {}};
  const auto [script, item] = carryOut(mutation, [&] {
    if (!state_->hasFolder(mutation.parent)) return std::optional<ScriptedItem>();
    ScriptedItem made{.identifier = "new:" + std::to_string(++state_->created),
                      .parent = mutation.parent,
                      .name = mutation.name,
                      .isFolder = itemTemplate->contentType() == UTType::folder()};
    made.contents = mutation.contents.value_or("");
    state_->items[made.identifier] = made;
    return std::optional<ScriptedItem>(made);
  });
  answer(script, item, completionHandler);
  return Progress::withTotalUnitCount(1);
}

std::shared_ptr<Progress> ScriptedExtension::modifyItem(
    const ItemPointer& item, const NSFileProviderItemVersion& baseVersion,
    NSFileProviderItemFields fields, const std::optional<URL>& contents,
    NSFileProviderModifyItemOptions, const NSFileProviderRequest&,
    MutationCompletion completionHandler) {
  const Mutation mutation{
      Mutation::Kind::modify,    item->itemIdentifier(), item->parentItemIdentifier(),
      item->filename(),          bytesOf(contents),      fields,
      baseVersion.contentVersion};
  const auto [script, changed] = carryOut(mutation, [&] {
    const auto at = state_->items.find(mutation.identifier);
    if (at == state_->items.end() || !state_->hasFolder(mutation.parent)) {
      return std::optional<ScriptedItem>();
    }
    state_->apply(mutation, at->second);
    return std::optional<ScriptedItem>(at->second);
  });
  answer(script, changed, completionHandler);
  return Progress::withTotalUnitCount(1);
}

std::shared_ptr<Progress> ScriptedExtension::deleteItem(
    const NSFileProviderItemIdentifier& identifier, const NSFileProviderItemVersion& baseVersion,
    NSFileProviderDeleteItemOptions, const NSFileProviderRequest&,
    DeleteCompletion completionHandler) {
  const Mutation mutation{Mutation::Kind::remove,    identifier, {}, {}, {}, 0,
                          baseVersion.contentVersion};
  const auto [script, removed] = carryOut(mutation, [&] {
    const auto at = state_->items.find(identifier);
    if (at == state_->items.end()) return std::optional<ScriptedItem>();
    const ScriptedItem item = at->second;
    state_->items.erase(at);
    return std::optional<ScriptedItem>(item);
  });
  std::optional<NSError> error = script.error;
  if (!error && !removed) error = fileProviderError(NSFileProviderErrorCode::noSuchItem);
  completionHandler(error);
  return Progress::withTotalUnitCount(1);
}

// Notes the request, and does it unless the script says otherwise.
std::pair<ScriptedExtension::MutationScript, std::optional<ScriptedItem>>
ScriptedExtension::carryOut(const Mutation& mutation,
                            const std::function<std::optional<ScriptedItem>()>& work) {
  MutationScript script;
  {
    const std::scoped_lock lock(state_->mutex);
    state_->mutations.push_back(mutation);
    script = state_->nextScript();
  }
  if (script.before) script.before();
  std::optional<ScriptedItem> item;
  {
    const std::scoped_lock lock(state_->mutex);
    if (script.error && !script.done) return {script, std::nullopt};
    item = work();
  }
  if (item && script.after) {
    script.after();
    item = find(item->identifier);
  }
  return {script, item};
}

void ScriptedExtension::answer(const MutationScript& script,
                               const std::optional<ScriptedItem>& item,
                               const MutationCompletion& completionHandler) {
  if (script.error) return completionHandler(nullptr, 0, false, script.error);
  if (item) return completionHandler(std::make_shared<Item>(*item), 0, false, std::nullopt);
  completionHandler(nullptr, 0, false, fileProviderError(NSFileProviderErrorCode::noSuchItem));
}

}  // namespace tulo::test
