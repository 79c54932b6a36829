#include <utility>

#include "bridge/HostBridge.h"
#include "bridge/HostBridgeError.h"
#include "extension/ExtensionLog.h"
#include "extension/FileProviderExtension.h"
#include "extension/ProviderError.h"
#include "index/Index.h"
#include "index/ItemID.h"
#include "platform/Dispatch.h"
#include "presentation/TuloItem.h"

// The contents of one file.

namespace tulo {
namespace {

using platform::fileProviderError;
using platform::ItemPointer;
using platform::NSError;
using platform::NSFileProviderErrorCode;

// The item as the index has it after the download. A download that succeeded is one even when its
// metadata cannot be read back: then the item is absent.
ItemPointer itemAfterDownload(const std::string& databaseName, const std::string& ulid) {
  const auto index = Index::open(Index::appGroup(), databaseName);
  auto entry = index ? index->entryForFile(ulid) : std::nullopt;
  return entry ? std::make_shared<const TuloItem>(*std::move(entry)) : nullptr;
}

NSError downloadError(const std::exception& error, const std::string& ulid) {
  const auto* bridgeError = dynamic_cast<const HostBridgeError*>(&error);
  if (!bridgeError || !bridgeError->isUnreachable()) return providerError(error, ulid, "fetch");
  extensionLog().info("host app unreachable for %{public}@", {ulid});
  return fileProviderError(NSFileProviderErrorCode::serverUnreachable);
}

std::optional<platform::URL> download(const std::string& account, const std::string& ulid,
                                      std::optional<NSError>& failure) {
  try {
    return HostBridge::fetch(account, ulid);
  } catch (const std::exception& error) {
    failure = downloadError(error, ulid);
    return std::nullopt;
  } catch (...) {
    failure = downloadError(ForeignException(), ulid);
    return std::nullopt;
  }
}

}  // namespace

std::shared_ptr<platform::Progress> FileProviderExtension::fetchContents(
    const platform::NSFileProviderItemIdentifier& itemIdentifier,
    const std::optional<platform::NSFileProviderItemVersion>& /*requestedVersion*/,
    const platform::NSFileProviderRequest& /*request*/,
    platform::FetchCompletion completionHandler) {
  auto progress = platform::Progress::withTotalUnitCount(1);
  auto parsed = ItemID::parse(itemIdentifier);
  if (!parsed || parsed->isFolder) {
    progress->setCompletedUnitCount(1);
    completionHandler(std::nullopt, nullptr,
                      fileProviderError(NSFileProviderErrorCode::noSuchItem));
    return progress;
  }
  auto work = [progress, account = account_, databaseName = databaseName_,
               ulid = std::move(parsed->ulid), completion = std::move(completionHandler)] {
    std::optional<NSError> failure;
    auto contents = download(account, ulid, failure);
    ItemPointer item = contents ? itemAfterDownload(databaseName, ulid) : nullptr;
    completion(std::move(contents), std::move(item), std::move(failure));
    progress->setCompletedUnitCount(1);
  };
  platform::DispatchQueue::global(platform::QualityOfService::userInitiated).async(std::move(work));
  return progress;
}

}  // namespace tulo
