#include <utility>

#include "bridge/HostBridge.h"
#include "extension/FileProviderExtension.h"
#include "extension/ProviderError.h"
#include "index/Index.h"
#include "index/ItemID.h"
#include "platform/Dispatch.h"
#include "presentation/TuloItem.h"

// Creating, changing and deleting items: one host request each.

namespace tulo {
namespace {

using platform::fileProviderError;
using platform::ItemPointer;
using platform::NSError;
using platform::NSFileProviderErrorCode;
using platform::NSFileProviderItemFields;
using ProgressPointer = std::shared_ptr<platform::Progress>;

// Nothing is ever left pending: what the host does not keep counts as done.
constexpr NSFileProviderItemFields noFields = 0;

platform::DispatchQueue& workers() {
  return platform::DispatchQueue::global(platform::QualityOfService::userInitiated);
}

// The folder that a parent identifier means, or nothing for the root. An identifier that names no
// folder means the root, too: better there than nowhere.
std::optional<std::string> parentFolder(const platform::NSFileProviderItemIdentifier& identifier) {
  if (identifier == platform::NSFileProviderRootContainerItemIdentifier()) return std::nullopt;
  auto parsed = ItemID::parse(identifier);
  if (!parsed || !parsed->isFolder) return std::nullopt;
  return std::move(parsed->ulid);
}

std::optional<IndexEntry> entry(const std::string& databaseName, const std::string& ulid,
                                bool isFolder) {
  const auto index = Index::open(Index::appGroup(), databaseName);
  if (!index) return std::nullopt;
  return isFolder ? index->entryForFolder(ulid) : index->entryForFile(ulid);
}

// Runs the body on a worker and completes with the item that it returns or the failure that it
// throws. Failures are logged under one name and without a ULID, whichever operation it was.
void write(const ProgressPointer& progress, platform::MutationCompletion completionHandler,
           std::function<ItemPointer()> body) {
  auto attempt = [body = std::move(body)](std::optional<NSError>& failure) -> ItemPointer {
    try {
      return body();
    } catch (const std::exception& error) {
      failure = providerError(error, "", "write");
      return nullptr;
    } catch (...) {
      failure = providerError(ForeignException(), "", "write");
      return nullptr;
    }
  };
  workers().async(
      [progress, attempt = std::move(attempt), completion = std::move(completionHandler)] {
        std::optional<NSError> failure;
        ItemPointer item = attempt(failure);
        completion(std::move(item), noFields, false, std::move(failure));
        progress->setCompletedUnitCount(1);
      });
}

ItemPointer itemOrPlaceholder(std::optional<IndexEntry> row, std::string identifier) {
  if (row) return std::make_shared<const TuloItem>(*std::move(row));
  return std::make_shared<const TuloItem>(std::nullopt, std::move(identifier));
}

// Files are looked for first whatever was created: the host decides what it made of the template.
ItemPointer createdItem(const std::string& databaseName, const std::string& ulid, bool isFolder) {
  auto row = entry(databaseName, ulid, false);
  if (!row) row = entry(databaseName, ulid, true);
  return itemOrPlaceholder(std::move(row), isFolder ? ItemID::folder(ulid) : ItemID::file(ulid));
}

}  // namespace

ProgressPointer FileProviderExtension::createItem(
    const ItemPointer& itemTemplate, NSFileProviderItemFields /*fields*/,
    const std::optional<platform::URL>& contents,
    platform::NSFileProviderCreateItemOptions /*options*/,
    const platform::NSFileProviderRequest& /*request*/,
    platform::MutationCompletion completionHandler) {
  auto progress = platform::Progress::withTotalUnitCount(1);
  const bool isFolder = itemTemplate->contentType() == platform::UTType::folder();
  write(progress, std::move(completionHandler),
        [account = account_, databaseName = databaseName_,
         parent = parentFolder(itemTemplate->parentItemIdentifier()),
         name = itemTemplate->filename(), isFolder, sent = isFolder ? std::nullopt : contents] {
          const std::string ulid = HostBridge::create(account, parent, name, sent);
          return createdItem(databaseName, ulid, isFolder);
        });
  return progress;
}

ProgressPointer FileProviderExtension::modifyItem(
    const ItemPointer& item, const platform::NSFileProviderItemVersion& /*baseVersion*/,
    NSFileProviderItemFields changedFields, const std::optional<platform::URL>& contents,
    platform::NSFileProviderModifyItemOptions /*options*/,
    const platform::NSFileProviderRequest& /*request*/,
    platform::MutationCompletion completionHandler) {
  auto progress = platform::Progress::withTotalUnitCount(1);
  const std::string identifier = item->itemIdentifier();
  const auto parsed = ItemID::parse(identifier);
  if (!parsed) {
    progress->setCompletedUnitCount(1);
    completionHandler(nullptr, noFields, false,
                      fileProviderError(NSFileProviderErrorCode::noSuchItem));
    return progress;
  }
  std::optional<std::string> name;
  if (changedFields & platform::NSFileProviderItemFilename) name = item->filename();
  std::optional<std::optional<std::string>> parent;
  if (changedFields & platform::NSFileProviderItemParentItemIdentifier) {
    parent = parentFolder(item->parentItemIdentifier());
  }
  std::optional<platform::URL> sent;
  if (changedFields & platform::NSFileProviderItemContents) sent = contents;
  write(progress, std::move(completionHandler),
        [account = account_, databaseName = databaseName_, identifier, target = *parsed,
         name = std::move(name), parent = std::move(parent), sent = std::move(sent)] {
          HostBridge::modify(account, target.ulid, target.isFolder, sent, name, parent);
          return itemOrPlaceholder(entry(databaseName, target.ulid, target.isFolder), identifier);
        });
  return progress;
}

ProgressPointer FileProviderExtension::deleteItem(
    const platform::NSFileProviderItemIdentifier& identifier,
    const platform::NSFileProviderItemVersion& /*baseVersion*/,
    platform::NSFileProviderDeleteItemOptions /*options*/,
    const platform::NSFileProviderRequest& /*request*/,
    platform::DeleteCompletion completionHandler) {
  auto progress = platform::Progress::withTotalUnitCount(1);
  const auto parsed = ItemID::parse(identifier);
  if (!parsed) {
    progress->setCompletedUnitCount(1);
    completionHandler(fileProviderError(NSFileProviderErrorCode::noSuchItem));
    return progress;
  }
  workers().async(
      [progress, account = account_, target = *parsed, completion = std::move(completionHandler)] {
        std::optional<NSError> failure;
        try {
          HostBridge::deleteItem(account, target.ulid, target.isFolder);
        } catch (const std::exception& error) {
          failure = providerError(error, target.ulid, "delete");
        } catch (...) {
          failure = providerError(ForeignException(), target.ulid, "delete");
        }
        completion(std::move(failure));
        progress->setCompletedUnitCount(1);
      });
  return progress;
}

}  // namespace tulo
