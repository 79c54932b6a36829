#include <utility>

#include "bridge/HostBridge.h"
#include "extension/FileProviderExtension.h"
#include "index/ItemID.h"
#include "platform/Dispatch.h"
#include "platform/FileManager.h"

// Thumbnails of a batch of items, one host request after another.

namespace tulo {
namespace {

// The image that the host renders of a file. Whatever stands in the way, there is just no image.
std::optional<platform::Data> thumbnail(const std::string& account,
                                        const platform::NSFileProviderItemIdentifier& identifier) {
  const auto parsed = ItemID::parse(identifier);
  if (!parsed || parsed->isFolder) return std::nullopt;
  try {
    return platform::FileManager::contents(HostBridge::thumbnail(account, parsed->ulid));
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace

std::shared_ptr<platform::Progress> FileProviderExtension::fetchThumbnails(
    std::vector<platform::NSFileProviderItemIdentifier> itemIdentifiers,
    platform::Size /*requestedSize*/,
    platform::PerThumbnailCompletion perThumbnailCompletionHandler,
    platform::ThumbnailsCompletion completionHandler) {
  auto progress =
      platform::Progress::withTotalUnitCount(static_cast<std::int64_t>(itemIdentifiers.size()));
  auto work = [progress, account = account_, identifiers = std::move(itemIdentifiers),
               perThumbnail = std::move(perThumbnailCompletionHandler),
               completion = std::move(completionHandler)] {
    for (const auto& identifier : identifiers) {
      if (progress->isCancelled()) break;
      perThumbnail(identifier, thumbnail(account, identifier), std::nullopt);
      progress->setCompletedUnitCount(progress->completedUnitCount() + 1);
    }
    completion(std::nullopt);
  };
  platform::DispatchQueue::global(platform::QualityOfService::utility).async(std::move(work));
  return progress;
}

}  // namespace tulo
