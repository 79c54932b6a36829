// The replicated-extension protocol: what the system asks of a file-provider extension and what it
// hands over. The names are the platform's own, so that they read like its documentation; in this
// namespace they can stand beside the real ones in an Objective-C++ file.
//
// The system side (the operating system, or this project's service on Linux) includes this header
// and nothing of the extension's inside.
//
// Lifetime: objects are reference-counted and live as long as any holder wants.
// Threads: the system may call an extension, its enumerators and its items on any thread, several
// calls at a time. Callbacks come on a thread of the extension's choosing, also on the caller's own
// before the call returns; a callback must not throw.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Error.h"
#include "platform/FileManager.h"
#include "platform/Progress.h"
#include "platform/URL.h"
#include "platform/UTType.h"

namespace tulo::platform {

using NSFileProviderItemIdentifier = std::string;
using NSFileProviderDomainIdentifier = std::string;
using NSFileProviderPage = Data;
using NSFileProviderSyncAnchor = Data;

// The system's own container identifiers. The references stay valid for the life of the process.
const NSFileProviderItemIdentifier& NSFileProviderRootContainerItemIdentifier();
const NSFileProviderItemIdentifier& NSFileProviderWorkingSetContainerItemIdentifier();
const NSFileProviderItemIdentifier& NSFileProviderTrashContainerItemIdentifier();

// Bits of a field mask.
using NSFileProviderItemFields = std::uint64_t;
inline constexpr NSFileProviderItemFields NSFileProviderItemContents = 1U << 0;
inline constexpr NSFileProviderItemFields NSFileProviderItemFilename = 1U << 1;
inline constexpr NSFileProviderItemFields NSFileProviderItemParentItemIdentifier = 1U << 2;
inline constexpr NSFileProviderItemFields NSFileProviderItemLastUsedDate = 1U << 3;
inline constexpr NSFileProviderItemFields NSFileProviderItemTagData = 1U << 4;
inline constexpr NSFileProviderItemFields NSFileProviderItemContentModificationDate = 1U << 7;

// Bits of what may be done with an item.
using NSFileProviderItemCapabilities = std::uint64_t;
inline constexpr NSFileProviderItemCapabilities NSFileProviderItemCapabilitiesAllowsReading = 1U
                                                                                              << 0;
inline constexpr NSFileProviderItemCapabilities NSFileProviderItemCapabilitiesAllowsWriting = 1U
                                                                                              << 1;
inline constexpr NSFileProviderItemCapabilities NSFileProviderItemCapabilitiesAllowsReparenting =
    1U << 2;
inline constexpr NSFileProviderItemCapabilities NSFileProviderItemCapabilitiesAllowsRenaming = 1U
                                                                                               << 3;
inline constexpr NSFileProviderItemCapabilities NSFileProviderItemCapabilitiesAllowsDeleting = 1U
                                                                                               << 5;
inline constexpr NSFileProviderItemCapabilities
    NSFileProviderItemCapabilitiesAllowsContentEnumerating =
        NSFileProviderItemCapabilitiesAllowsReading;
inline constexpr NSFileProviderItemCapabilities NSFileProviderItemCapabilitiesAllowsAddingSubItems =
    NSFileProviderItemCapabilitiesAllowsWriting;

// Options of the three mutations.
using NSFileProviderCreateItemOptions = std::uint64_t;
inline constexpr NSFileProviderCreateItemOptions NSFileProviderCreateItemMayAlreadyExist = 1U << 0;
using NSFileProviderModifyItemOptions = std::uint64_t;
using NSFileProviderDeleteItemOptions = std::uint64_t;
inline constexpr NSFileProviderDeleteItemOptions NSFileProviderDeleteItemRecursive = 1U << 0;

// Two byte strings that the system stores and compares.
struct NSFileProviderItemVersion {
  Data contentVersion;
  Data metadataVersion;

  bool operator==(const NSFileProviderItemVersion&) const = default;
};

// Whole seconds since 1970-01-01 00:00 UTC.
using Date = std::chrono::sys_seconds;

// Metadata of one item. Immutable: every property gives the same answer each time.
class NSFileProviderItem {
 public:
  virtual ~NSFileProviderItem() = default;

  virtual NSFileProviderItemIdentifier itemIdentifier() const = 0;
  virtual NSFileProviderItemIdentifier parentItemIdentifier() const = 0;
  virtual std::string filename() const = 0;

  // Optional properties, with the platform's defaults for an item that does not provide them.
  virtual std::optional<UTType> contentType() const { return std::nullopt; }
  virtual NSFileProviderItemCapabilities capabilities() const {
    return NSFileProviderItemCapabilitiesAllowsReading;
  }
  virtual std::optional<std::int64_t> documentSize() const { return std::nullopt; }
  virtual std::optional<Date> contentModificationDate() const { return std::nullopt; }
  virtual bool isUploaded() const { return true; }
  virtual bool isDownloaded() const { return false; }
  virtual NSFileProviderItemVersion itemVersion() const { return {}; }
};

using ItemPointer = std::shared_ptr<const NSFileProviderItem>;

// One account as the system knows it. Immutable. A platform may derive from it, to carry the
// system's own object along.
class NSFileProviderDomain {
 public:
  NSFileProviderDomain(NSFileProviderDomainIdentifier identifier, std::string displayName)
      : identifier_(std::move(identifier)), displayName_(std::move(displayName)) {}
  virtual ~NSFileProviderDomain() = default;

  const NSFileProviderDomainIdentifier& identifier() const { return identifier_; }
  const std::string& displayName() const { return displayName_; }

 private:
  NSFileProviderDomainIdentifier identifier_;
  std::string displayName_;
};

using DomainPointer = std::shared_ptr<const NSFileProviderDomain>;

// The system's manager of one domain. The extension obtains one and keeps it; no request uses it.
class NSFileProviderManager {
 public:
  virtual ~NSFileProviderManager() = default;

  // Nothing when the system has no manager for the domain.
  static std::shared_ptr<NSFileProviderManager> managerForDomain(const DomainPointer& domain);
};

// Who asks, and for which reason. Carried for the protocol's sake.
struct NSFileProviderRequest {
  bool isSystemRequest = false;
  bool isFileViewerRequest = false;
};

// Receives a listing. An enumerator calls didEnumerateItems any number of times and then exactly
// one of the two finishing operations.
class NSFileProviderEnumerationObserver {
 public:
  virtual ~NSFileProviderEnumerationObserver() = default;
  virtual void didEnumerateItems(std::vector<ItemPointer> items) = 0;
  // No next page: the listing is complete.
  virtual void finishEnumeratingUpToPage(std::optional<NSFileProviderPage> nextPage) = 0;
  virtual void finishEnumeratingWithError(const NSError& error) = 0;
};

// Receives changes. Exactly one of the two finishing operations is called, last.
class NSFileProviderChangeObserver {
 public:
  virtual ~NSFileProviderChangeObserver() = default;
  virtual void didUpdateItems(std::vector<ItemPointer> items) = 0;
  virtual void didDeleteItems(std::vector<NSFileProviderItemIdentifier> identifiers) = 0;
  virtual void finishEnumeratingChanges(const NSFileProviderSyncAnchor& anchor,
                                        bool moreComing) = 0;
  virtual void finishEnumeratingWithError(const NSError& error) = 0;
};

// Lists one container. The observers must outlive the call to which they are passed only as far as
// the caller shares them; an enumerator that keeps one holds a reference.
class NSFileProviderEnumerator {
 public:
  virtual ~NSFileProviderEnumerator() = default;
  virtual void invalidate() = 0;
  virtual void enumerateItems(const std::shared_ptr<NSFileProviderEnumerationObserver>& observer,
                              const NSFileProviderPage& startingAtPage) = 0;
  virtual void enumerateChanges(const std::shared_ptr<NSFileProviderChangeObserver>& observer,
                                const NSFileProviderSyncAnchor& fromSyncAnchor) = 0;
  virtual void currentSyncAnchor(
      const std::function<void(std::optional<NSFileProviderSyncAnchor>)>& completionHandler) = 0;
};

// Callback shapes. Absent errors and absent values are std::nullopt or null.
using ItemCompletion = std::function<void(ItemPointer item, std::optional<NSError> error)>;
using FetchCompletion = std::function<void(std::optional<URL> contents, ItemPointer item,
                                           std::optional<NSError> error)>;
using MutationCompletion =
    std::function<void(ItemPointer item, NSFileProviderItemFields stillPendingFields,
                       bool shouldFetchContent, std::optional<NSError> error)>;
using DeleteCompletion = std::function<void(std::optional<NSError> error)>;
using PerThumbnailCompletion =
    std::function<void(const NSFileProviderItemIdentifier& identifier, std::optional<Data> image,
                       std::optional<NSError> error)>;
using ThumbnailsCompletion = std::function<void(std::optional<NSError> error)>;

// What the system asks of an extension: one object for each domain. Every call may be made on any
// thread; each completion is called exactly once.
class NSFileProviderReplicatedExtension {
 public:
  virtual ~NSFileProviderReplicatedExtension() = default;

  virtual void invalidate() = 0;

  virtual std::shared_ptr<Progress> item(const NSFileProviderItemIdentifier& identifier,
                                         const NSFileProviderRequest& request,
                                         const ItemCompletion& completionHandler) = 0;

  virtual std::shared_ptr<NSFileProviderEnumerator> enumerator(
      const NSFileProviderItemIdentifier& containerItemIdentifier,
      const NSFileProviderRequest& request) = 0;

  // The file at the URL belongs to the system from the completion on.
  virtual std::shared_ptr<Progress> fetchContents(
      const NSFileProviderItemIdentifier& itemIdentifier,
      const std::optional<NSFileProviderItemVersion>& requestedVersion,
      const NSFileProviderRequest& request, FetchCompletion completionHandler) = 0;

  // The file at the contents URL stays the system's; it must stay as it is until the completion.
  virtual std::shared_ptr<Progress> createItem(const ItemPointer& itemTemplate,
                                               NSFileProviderItemFields fields,
                                               const std::optional<URL>& contents,
                                               NSFileProviderCreateItemOptions options,
                                               const NSFileProviderRequest& request,
                                               MutationCompletion completionHandler) = 0;

  // As createItem; `item` carries the new values of the changed fields.
  virtual std::shared_ptr<Progress> modifyItem(const ItemPointer& item,
                                               const NSFileProviderItemVersion& baseVersion,
                                               NSFileProviderItemFields changedFields,
                                               const std::optional<URL>& contents,
                                               NSFileProviderModifyItemOptions options,
                                               const NSFileProviderRequest& request,
                                               MutationCompletion completionHandler) = 0;

  virtual std::shared_ptr<Progress> deleteItem(const NSFileProviderItemIdentifier& identifier,
                                               const NSFileProviderItemVersion& baseVersion,
                                               NSFileProviderDeleteItemOptions options,
                                               const NSFileProviderRequest& request,
                                               DeleteCompletion completionHandler) = 0;
};

struct Size {
  double width = 0;
  double height = 0;
};

// What the system asks of an extension that has thumbnails; a further face of the same object.
class NSFileProviderThumbnailing {
 public:
  virtual ~NSFileProviderThumbnailing() = default;

  // The completion comes after the last per-thumbnail call. Cancelling the progress ends the batch.
  virtual std::shared_ptr<Progress> fetchThumbnails(
      std::vector<NSFileProviderItemIdentifier> itemIdentifiers, Size requestedSize,
      PerThumbnailCompletion perThumbnailCompletionHandler,
      ThumbnailsCompletion completionHandler) = 0;
};

}  // namespace tulo::platform
