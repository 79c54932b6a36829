#include "presentation/TuloItem.h"

#include <utility>

#include "index/ItemID.h"
#include "platform/Text.h"

namespace tulo {
namespace {

using platform::UTType;

constexpr const char* rootName = "Tulo Hub";

constexpr platform::NSFileProviderItemCapabilities readOnly =
    platform::NSFileProviderItemCapabilitiesAllowsReading;
constexpr platform::NSFileProviderItemCapabilities readAndAdd =
    platform::NSFileProviderItemCapabilitiesAllowsReading |
    platform::NSFileProviderItemCapabilitiesAllowsWriting;
constexpr platform::NSFileProviderItemCapabilities everyChange =
    readAndAdd | platform::NSFileProviderItemCapabilitiesAllowsReparenting |
    platform::NSFileProviderItemCapabilitiesAllowsRenaming |
    platform::NSFileProviderItemCapabilitiesAllowsDeleting;

std::string identifierOf(const IndexEntry& entry) {
  return entry.isFolder ? ItemID::folder(entry.ulid) : ItemID::file(entry.ulid);
}

}  // namespace

std::shared_ptr<const TuloItem> TuloItem::root() {
  return std::make_shared<const TuloItem>(std::nullopt,
                                          platform::NSFileProviderRootContainerItemIdentifier());
}

TuloItem::TuloItem(IndexEntry entry) : entry_(std::move(entry)) {}

TuloItem::TuloItem(std::optional<IndexEntry> entry, platform::NSFileProviderItemIdentifier id)
    : entry_(std::move(entry)), id_(std::move(id)) {}

platform::NSFileProviderItemIdentifier TuloItem::itemIdentifier() const {
  return id_ ? *id_ : identifierOf(*entry_);
}

platform::NSFileProviderItemIdentifier TuloItem::parentItemIdentifier() const {
  if (entry_ && entry_->parentUlid) return ItemID::folder(*entry_->parentUlid);
  return platform::NSFileProviderRootContainerItemIdentifier();
}

std::string TuloItem::filename() const {
  return entry_ ? entry_->displayName : rootName;
}

std::optional<UTType> TuloItem::contentType() const {
  if (!isFile()) return UTType::folder();
  const std::string extension = platform::text::pathExtension(entry_->displayName);
  return UTType::dataTypeWithFilenameExtension(extension).value_or(UTType::data());
}

platform::NSFileProviderItemCapabilities TuloItem::capabilities() const {
  if (!entry_) return readAndAdd;
  return isFile() && entry_->lockedByUserId ? readOnly : everyChange;
}

std::optional<std::int64_t> TuloItem::documentSize() const {
  if (!isFile()) return std::nullopt;
  return entry_->size;
}

std::optional<platform::Date> TuloItem::contentModificationDate() const {
  if (!isFile()) return std::nullopt;
  return entry_->modified;
}

bool TuloItem::isUploaded() const {
  return true;
}

bool TuloItem::isDownloaded() const {
  return false;
}

platform::NSFileProviderItemVersion TuloItem::itemVersion() const {
  std::string version = std::to_string(entry_ ? entry_->versionNumber : 0);
  std::string metadata = version + "-" + (entry_ ? entry_->displayName : "");
  return {std::move(version), std::move(metadata)};
}

}  // namespace tulo
