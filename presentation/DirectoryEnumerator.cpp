#include "presentation/DirectoryEnumerator.h"

#include <utility>
#include <vector>

#include "index/Index.h"
#include "index/ItemID.h"
#include "platform/Bundle.h"
#include "platform/Deployment.h"
#include "platform/Log.h"
#include "presentation/TuloItem.h"

namespace tulo {
namespace {

using platform::ItemPointer;

const platform::Log& enumeratorLog() {
  static const platform::Log log(std::string(deployment::hostBundleIdentifier) + ".fileprovider",
                                 "Enumerator");
  return log;
}

// A folder of the index: a ULID, or nothing for the top level.
struct Folder {
  std::optional<std::string> ulid;
};

// Nothing for a container that is no folder: a file, the working set, the trash, any other string.
std::optional<Folder> folderOf(const platform::NSFileProviderItemIdentifier& container) {
  if (container == platform::NSFileProviderRootContainerItemIdentifier()) return Folder{};
  auto parsed = ItemID::parse(container);
  if (!parsed || !parsed->isFolder) return std::nullopt;
  return Folder{std::move(parsed->ulid)};
}

std::vector<ItemPointer> itemsOf(std::vector<IndexEntry> children) {
  std::vector<ItemPointer> items;
  items.reserve(children.size());
  for (auto& child : children)
    items.push_back(std::make_shared<const TuloItem>(std::move(child)));
  return items;
}

void finish(platform::NSFileProviderEnumerationObserver& observer, std::vector<ItemPointer> items) {
  observer.didEnumerateItems(std::move(items));
  observer.finishEnumeratingUpToPage(std::nullopt);
}

}  // namespace

DirectoryEnumerator::DirectoryEnumerator(
    platform::NSFileProviderItemIdentifier containerItemIdentifier, std::string databaseName)
    : container_(std::move(containerItemIdentifier)), databaseName_(std::move(databaseName)) {}

void DirectoryEnumerator::invalidate() {}

void DirectoryEnumerator::enumerateItems(
    const std::shared_ptr<platform::NSFileProviderEnumerationObserver>& observer,
    const platform::NSFileProviderPage& /*startingAtPage*/) {
  const auto index = Index::open(Index::appGroup(), databaseName_);
  const auto folder = index ? folderOf(container_) : std::nullopt;
  if (!folder) return finish(*observer, {});
  std::vector<IndexEntry> children = index->childrenOfFolder(folder->ulid);
  enumeratorLog().info("enumerated %d children of %{public}@",
                       {children.size(), folder->ulid.value_or("<root>")});
  finish(*observer, itemsOf(std::move(children)));
}

void DirectoryEnumerator::enumerateChanges(
    const std::shared_ptr<platform::NSFileProviderChangeObserver>& observer,
    const platform::NSFileProviderSyncAnchor& fromSyncAnchor) {
  const auto current = anchor();
  if (fromSyncAnchor == current) return observer->finishEnumeratingChanges(current, false);
  enumeratorLog().info("index changed, forcing re-enumeration");
  observer->finishEnumeratingWithError(
      fileProviderError(platform::NSFileProviderErrorCode::syncAnchorExpired));
}

void DirectoryEnumerator::currentSyncAnchor(
    const std::function<void(std::optional<platform::NSFileProviderSyncAnchor>)>&
        completionHandler) {
  completionHandler(anchor());
}

const std::string& DirectoryEnumerator::extensionVersion() {
  static const std::string version =
      platform::mainBundleInfoString("CFBundleShortVersionString").value_or("0");
  return version;
}

platform::NSFileProviderSyncAnchor DirectoryEnumerator::anchor() const {
  // A connection of its own: the number is the one that a newly opened connection reports.
  const auto index = Index::open(Index::appGroup(), databaseName_);
  return extensionVersion() + "|" + std::to_string(index ? index->dataVersion() : 0);
}

}  // namespace tulo
