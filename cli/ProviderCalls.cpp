#include "cli/ProviderCalls.h"

#include <glib.h>

#include <chrono>
#include <future>
#include <thread>
#include <utility>

#include "cli/GivenItem.h"
#include "cli/ProtocolValues.h"
#include "index/Index.h"
#include "platform/Deployment.h"
#include "platform/FileManager.h"
#include "presentation/DirectoryEnumerator.h"

namespace tulo::cli {
namespace {

using platform::ItemPointer;
using platform::NSError;
using platform::Progress;

// The status of a call that has called back, handed from the callback's thread to the command's.
// Copies share it: the callback's copy keeps it alive until the thread that sets it is done with
// it.
class Outcome {
 public:
  void set(const std::optional<NSError>& error) const { promise_->set_value(error ? 1 : 0); }
  int wait() const { return promise_->get_future().get(); }

 private:
  std::shared_ptr<std::promise<int>> promise_ = std::make_shared<std::promise<int>>();
};

// The extension completes the progress just after its callback has returned.
void waitUntilComplete(const Progress& progress) {
  while (progress.completedUnitCount() < progress.totalUnitCount()) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

JSON urlValue(const std::optional<platform::URL>& url) {
  if (!url) return nullptr;
  return url->absoluteString();
}

class PrintingEnumerationObserver final : public platform::NSFileProviderEnumerationObserver {
 public:
  explicit PrintingEnumerationObserver(JSONLines& output) : output_(output) {}

  void didEnumerateItems(std::vector<ItemPointer> items) override {
    JSON values = JSON::array();
    for (const auto& item : items)
      values.push_back(itemValue(item));
    output_.print({{"didEnumerateItems", std::move(values)}});
  }
  void finishEnumeratingUpToPage(std::optional<platform::NSFileProviderPage> nextPage) override {
    const JSON page = nextPage ? JSON(*nextPage) : JSON(nullptr);
    output_.print({{"finishEnumerating", {{"nextPage", page}}}});
    status = 0;
  }
  void finishEnumeratingWithError(const NSError& error) override {
    output_.print({{"finishEnumeratingWithError", errorValue(error)}});
    status = 1;
  }

  int status = 1;

 private:
  JSONLines& output_;
};

class PrintingChangeObserver final : public platform::NSFileProviderChangeObserver {
 public:
  explicit PrintingChangeObserver(JSONLines& output) : output_(output) {}

  void didUpdateItems(std::vector<ItemPointer> items) override {
    JSON values = JSON::array();
    for (const auto& item : items)
      values.push_back(itemValue(item));
    output_.print({{"didUpdateItems", std::move(values)}});
  }
  void didDeleteItems(std::vector<platform::NSFileProviderItemIdentifier> identifiers) override {
    output_.print({{"didDeleteItems", std::move(identifiers)}});
  }
  void finishEnumeratingChanges(const platform::NSFileProviderSyncAnchor& anchor,
                                bool moreComing) override {
    output_.print({{"finishEnumeratingChanges", {{"anchor", anchor}, {"moreComing", moreComing}}}});
    status = 0;
  }
  void finishEnumeratingWithError(const NSError& error) override {
    output_.print({{"finishEnumeratingWithError", errorValue(error)}});
    status = 1;
  }

  int status = 1;

 private:
  JSONLines& output_;
};

platform::NSFileProviderItemFields givenFields(const Change& change) {
  platform::NSFileProviderItemFields fields = 0;
  if (change.contents) fields |= platform::NSFileProviderItemContents;
  if (change.name) fields |= platform::NSFileProviderItemFilename;
  if (change.parent) fields |= platform::NSFileProviderItemParentItemIdentifier;
  return fields;
}

platform::MutationCompletion printMutation(JSONLines& output, const Outcome& outcome) {
  return [&output, outcome](const ItemPointer& item,
                            platform::NSFileProviderItemFields stillPendingFields,
                            bool shouldFetchContent, const std::optional<NSError>& error) {
    output.print({{"item", itemValue(item)},
                  {"stillPendingFields", stillPendingFields},
                  {"shouldFetchContent", shouldFetchContent},
                  {"error", errorValue(error)}});
    outcome.set(error);
  };
}

JSON base64Value(const std::optional<platform::Data>& data) {
  if (!data) return nullptr;
  const std::unique_ptr<char, decltype(&g_free)> text(
      g_base64_encode(reinterpret_cast<const guchar*>(data->data()), data->size()), &g_free);
  return std::string(text.get());
}

// The last line of a call that has a progress.
int finish(JSONLines& output, const Progress& progress, int status) {
  output.print(progressValue(progress));
  return status;
}

int finishWhenComplete(JSONLines& output, const Progress& progress, const Outcome& outcome) {
  const int status = outcome.wait();
  waitUntilComplete(progress);
  return finish(output, progress, status);
}

}  // namespace

int ProviderCalls::info() {
  const platform::NSFileProviderDomain& domain = *extension_->domain();
  const auto container = platform::FileManager::containerURL(Index::appGroup());
  output_.print({{"hostBundleIdentifier", deployment::hostBundleIdentifier},
                 {"appGroup", Index::appGroup()},
                 {"domainPrefix", Index::domainPrefix()},
                 {"domain", domain.identifier()},
                 {"account", Index::accountId(domain)},
                 {"databaseName", Index::databaseName(domain)},
                 {"extensionVersion", DirectoryEnumerator::extensionVersion()},
                 {"container", container ? JSON(container->path()) : JSON(nullptr)}});
  return 0;
}

int ProviderCalls::item(const std::string& identifier) {
  int status = 1;
  const auto progress = extension_->item(
      identifier, {}, [&](const ItemPointer& item, const std::optional<NSError>& error) {
        output_.print({{"item", itemValue(item)}, {"error", errorValue(error)}});
        status = error ? 1 : 0;
      });
  return finish(output_, *progress, status);
}

int ProviderCalls::enumerate(const std::string& identifier) {
  const auto observer = std::make_shared<PrintingEnumerationObserver>(output_);
  extension_->enumerator(identifier, {})->enumerateItems(observer, {});
  return observer->status;
}

int ProviderCalls::anchor(const std::string& identifier) {
  extension_->enumerator(identifier, {})
      ->currentSyncAnchor([&](const std::optional<platform::NSFileProviderSyncAnchor>& anchor) {
        output_.print({{"syncAnchor", anchor ? JSON(*anchor) : JSON(nullptr)}});
      });
  return 0;
}

int ProviderCalls::changes(const std::string& identifier, const std::string& anchor) {
  const auto observer = std::make_shared<PrintingChangeObserver>(output_);
  extension_->enumerator(identifier, {})->enumerateChanges(observer, anchor);
  return observer->status;
}

int ProviderCalls::fetch(const std::string& identifier) {
  const Outcome outcome;
  const auto progress = extension_->fetchContents(
      identifier, std::nullopt, {},
      [&output = output_, outcome](const std::optional<platform::URL>& contents,
                                   const ItemPointer& item, const std::optional<NSError>& error) {
        output.print(
            {{"url", urlValue(contents)}, {"item", itemValue(item)}, {"error", errorValue(error)}});
        outcome.set(error);
      });
  return finishWhenComplete(output_, *progress, outcome);
}

int ProviderCalls::create(const NewItem& newItem) {
  platform::NSFileProviderItemFields fields =
      platform::NSFileProviderItemFilename | platform::NSFileProviderItemParentItemIdentifier;
  if (newItem.contents) fields |= platform::NSFileProviderItemContents;
  const Outcome outcome;
  const auto progress = extension_->createItem(
      std::make_shared<GivenItem>("", newItem.parent, newItem.name, newItem.type), fields,
      newItem.contents, 0, {}, printMutation(output_, outcome));
  return finishWhenComplete(output_, *progress, outcome);
}

int ProviderCalls::modify(const Change& change) {
  const auto item = std::make_shared<GivenItem>(
      change.identifier,
      change.parent.value_or(platform::NSFileProviderRootContainerItemIdentifier()),
      change.name.value_or(""), std::nullopt);
  const Outcome outcome;
  const auto progress =
      extension_->modifyItem(item, {}, change.fields.value_or(givenFields(change)), change.contents,
                             0, {}, printMutation(output_, outcome));
  return finishWhenComplete(output_, *progress, outcome);
}

int ProviderCalls::deleteItem(const std::string& identifier) {
  const Outcome outcome;
  const auto progress = extension_->deleteItem(
      identifier, {}, 0, {}, [&output = output_, outcome](const std::optional<NSError>& error) {
        output.print({{"error", errorValue(error)}});
        outcome.set(error);
      });
  return finishWhenComplete(output_, *progress, outcome);
}

int ProviderCalls::thumbnails(const ThumbnailBatch& batch) {
  // The first call back may come before the progress has been returned: it waits for it.
  std::promise<std::shared_ptr<Progress>> promised;
  const std::shared_future<std::shared_ptr<Progress>> returned = promised.get_future().share();
  std::uint64_t calls = 0;
  const Outcome outcome;
  const auto progress = extension_->fetchThumbnails(
      batch.identifiers, batch.size,
      [&calls, &batch, &output = output_, returned](const std::string& identifier,
                                                    const std::optional<platform::Data>& image,
                                                    const std::optional<NSError>& error) {
        output.print({{"thumbnail",
                       {{"itemIdentifier", identifier},
                        {"data", base64Value(image)},
                        {"error", errorValue(error)}}}});
        if (++calls == batch.cancelAfter) returned.get()->cancel();
      },
      [&output = output_, outcome](const std::optional<NSError>& error) {
        output.print({{"completion", {{"error", errorValue(error)}}}});
        outcome.set(error);
      });
  promised.set_value(progress);
  const int status = outcome.wait();
  return finish(output_, *progress, status);
}

}  // namespace tulo::cli
