#include <utility>

#include "extension/FileProviderExtension.h"
#include "index/Index.h"
#include "index/ItemID.h"
#include "presentation/DirectoryEnumerator.h"
#include "presentation/TuloItem.h"

// What the index alone answers: one item's metadata, and an enumerator for a container.

namespace tulo {
namespace {

using platform::ItemPointer;

std::optional<IndexEntry> entryFor(const Index& index, const ItemID::Parsed& parsed) {
  return parsed.isFolder ? index.entryForFolder(parsed.ulid) : index.entryForFile(parsed.ulid);
}

// Nothing for an identifier that names no row, and while there is no index: the system need not
// tell the two apart.
ItemPointer itemFor(const platform::NSFileProviderItemIdentifier& identifier,
                    const std::string& databaseName) {
  if (identifier == platform::NSFileProviderRootContainerItemIdentifier()) return TuloItem::root();
  const auto parsed = ItemID::parse(identifier);
  if (!parsed) return nullptr;
  const auto index = Index::open(Index::appGroup(), databaseName);
  auto entry = index ? entryFor(*index, *parsed) : std::nullopt;
  return entry ? std::make_shared<const TuloItem>(*std::move(entry)) : nullptr;
}

}  // namespace

std::shared_ptr<platform::Progress> FileProviderExtension::item(
    const platform::NSFileProviderItemIdentifier& identifier,
    const platform::NSFileProviderRequest& /*request*/,
    const platform::ItemCompletion& completionHandler) {
  auto progress = platform::Progress::withTotalUnitCount(1);
  if (auto found = itemFor(identifier, databaseName_)) {
    completionHandler(std::move(found), std::nullopt);
  } else {
    completionHandler(nullptr, fileProviderError(platform::NSFileProviderErrorCode::noSuchItem));
  }
  progress->setCompletedUnitCount(1);
  return progress;
}

std::shared_ptr<platform::NSFileProviderEnumerator> FileProviderExtension::enumerator(
    const platform::NSFileProviderItemIdentifier& containerItemIdentifier,
    const platform::NSFileProviderRequest& /*request*/) {
  return std::make_shared<DirectoryEnumerator>(containerItemIdentifier, databaseName_);
}

}  // namespace tulo
