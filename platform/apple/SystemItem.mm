#include "platform/apple/SystemItem.h"

#include <cmath>

#include "platform/apple/ContentType.h"
#include "platform/apple/Retained.h"
#include "platform/apple/Values.h"

namespace tulo::apple {

namespace {

platform::Date toDate(NSDate *date) {
  return platform::Date(
      std::chrono::seconds(static_cast<std::int64_t>(std::floor([date timeIntervalSince1970]))));
}

class SystemItem final : public platform::NSFileProviderItem {
 public:
  explicit SystemItem(::NSFileProviderItem item)
      : item_(Retained<::NSFileProviderItem>::retaining(item)) {}

  platform::NSFileProviderItemIdentifier itemIdentifier() const override {
    return toString([object() itemIdentifier]);
  }

  platform::NSFileProviderItemIdentifier parentItemIdentifier() const override {
    return toString([object() parentItemIdentifier]);
  }

  std::string filename() const override { return toString([object() filename]); }

  std::optional<platform::UTType> contentType() const override {
    if (!has(@selector(contentType))) return NSFileProviderItem::contentType();
    return toType([object() contentType]);
  }

  platform::NSFileProviderItemCapabilities capabilities() const override {
    if (!has(@selector(capabilities))) return NSFileProviderItem::capabilities();
    return [object() capabilities];
  }

  std::optional<std::int64_t> documentSize() const override {
    NSNumber *size = has(@selector(documentSize)) ? [object() documentSize] : nil;
    if (size == nil) return std::nullopt;
    return [size longLongValue];
  }

  std::optional<platform::Date> contentModificationDate() const override {
    NSDate *date =
        has(@selector(contentModificationDate)) ? [object() contentModificationDate] : nil;
    if (date == nil) return std::nullopt;
    return toDate(date);
  }

  bool isUploaded() const override {
    return has(@selector(isUploaded)) ? [object() isUploaded] : NSFileProviderItem::isUploaded();
  }

  bool isDownloaded() const override {
    return has(@selector(isDownloaded)) ? [object() isDownloaded]
                                        : NSFileProviderItem::isDownloaded();
  }

  platform::NSFileProviderItemVersion itemVersion() const override {
    if (!has(@selector(itemVersion))) return NSFileProviderItem::itemVersion();
    return toItemVersion([object() itemVersion]);
  }

 private:
  ::NSFileProviderItem object() const { return item_.get(); }
  bool has(SEL selector) const { return [object() respondsToSelector:selector]; }

  Retained<::NSFileProviderItem> item_;
};

}  // namespace

platform::ItemPointer toItem(NSFileProviderItem item) { return std::make_shared<SystemItem>(item); }

platform::NSFileProviderItemVersion toItemVersion(NSFileProviderItemVersion *version) {
  return {.contentVersion = toData([version contentVersion]),
          .metadataVersion = toData([version metadataVersion])};
}

std::optional<platform::NSFileProviderItemVersion> toOptionalItemVersion(
    NSFileProviderItemVersion *version) {
  if (version == nil) return std::nullopt;
  return toItemVersion(version);
}

}  // namespace tulo::apple
