#import "platform/apple/TuloItem.h"

#include "platform/apple/ContentType.h"
#include "platform/apple/UnavailableInitializer.h"
#include "platform/apple/Values.h"

using tulo::apple::toNSData;
using tulo::apple::toNSString;

@implementation TuloItem

- (instancetype)initWithItem:(tulo::platform::ItemPointer)item {
  self = [super init];
  if (self != nil) _item = std::move(item);
  return self;
}

- (instancetype)init {
  tulo::apple::stopForUnavailableInitializer(self);
}

- (NSFileProviderItemIdentifier)itemIdentifier {
  return toNSString(_item->itemIdentifier());
}

- (NSFileProviderItemIdentifier)parentItemIdentifier {
  return toNSString(_item->parentItemIdentifier());
}

- (NSString *)filename {
  return toNSString(_item->filename());
}

- (UTType *)contentType {
  const auto type = _item->contentType();
  UTType *known = type ? tulo::apple::toUTType(*type) : nil;
  return known != nil ? known : UTTypeData;
}

- (NSFileProviderItemCapabilities)capabilities {
  return static_cast<NSFileProviderItemCapabilities>(_item->capabilities());
}

- (NSNumber *)documentSize {
  const auto size = _item->documentSize();
  return size ? [NSNumber numberWithLongLong:*size] : nil;
}

- (NSDate *)contentModificationDate {
  const auto date = _item->contentModificationDate();
  if (!date) return nil;
  const auto seconds = date->time_since_epoch().count();
  return [NSDate dateWithTimeIntervalSince1970:static_cast<NSTimeInterval>(seconds)];
}

- (BOOL)isUploaded {
  return _item->isUploaded();
}

- (BOOL)isDownloaded {
  return _item->isDownloaded();
}

- (NSFileProviderItemVersion *)itemVersion {
  const auto version = _item->itemVersion();
  return [[[NSFileProviderItemVersion alloc]
      initWithContentVersion:toNSData(version.contentVersion)
             metadataVersion:toNSData(version.metadataVersion)] autorelease];
}

@end

namespace tulo::apple {

NSFileProviderItem toNSItem(const platform::ItemPointer &item) {
  if (!item) return nil;
  return [[[TuloItem alloc] initWithItem:item] autorelease];
}

NSArray *toNSItems(const std::vector<platform::ItemPointer> &items) {
  NSMutableArray *objects = [NSMutableArray arrayWithCapacity:items.size()];
  for (const auto &item : items) {
    TuloItem *object = [[TuloItem alloc] initWithItem:item];
    [objects addObject:object];
    [object release];
  }
  return objects;
}

}  // namespace tulo::apple
