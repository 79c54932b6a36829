#import "platform/apple/DirectoryEnumerator.h"

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Completion.h"
#include "platform/apple/Retained.h"
#include "platform/apple/TuloItem.h"
#include "platform/apple/UnavailableInitializer.h"
#include "platform/apple/Values.h"

namespace {

using tulo::apple::Retained;
using tulo::apple::toNSData;
using tulo::apple::toNSError;
using tulo::apple::toNSItems;
namespace platform = tulo::platform;

NSData *toNSData(const std::optional<platform::Data> &data) { return data ? toNSData(*data) : nil; }

class ItemObserver final : public platform::NSFileProviderEnumerationObserver {
 public:
  explicit ItemObserver(id<NSFileProviderEnumerationObserver> observer)
      : observer_(Retained<id<NSFileProviderEnumerationObserver>>::retaining(observer)) {}

  void didEnumerateItems(std::vector<platform::ItemPointer> items) override {
    const tulo::apple::AutoreleasePool pool;
    [observer_.get() didEnumerateItems:toNSItems(items)];
  }

  void finishEnumeratingUpToPage(std::optional<platform::NSFileProviderPage> nextPage) override {
    [observer_.get() finishEnumeratingUpToPage:toNSData(nextPage)];
  }

  void finishEnumeratingWithError(const platform::NSError &error) override {
    [observer_.get() finishEnumeratingWithError:toNSError(error)];
  }

 private:
  Retained<id<NSFileProviderEnumerationObserver>> observer_;
};

class ChangeObserver final : public platform::NSFileProviderChangeObserver {
 public:
  explicit ChangeObserver(id<NSFileProviderChangeObserver> observer)
      : observer_(Retained<id<NSFileProviderChangeObserver>>::retaining(observer)) {}

  void didUpdateItems(std::vector<platform::ItemPointer> items) override {
    const tulo::apple::AutoreleasePool pool;
    [observer_.get() didUpdateItems:toNSItems(items)];
  }

  void didDeleteItems(std::vector<platform::NSFileProviderItemIdentifier> identifiers) override {
    const tulo::apple::AutoreleasePool pool;
    NSMutableArray *objects = [NSMutableArray arrayWithCapacity:identifiers.size()];
    for (const auto &identifier : identifiers) {
      [objects addObject:tulo::apple::toNSString(identifier)];
    }
    [observer_.get() didDeleteItemsWithIdentifiers:objects];
  }

  void finishEnumeratingChanges(const platform::NSFileProviderSyncAnchor &anchor,
                                bool moreComing) override {
    [observer_.get() finishEnumeratingChangesUpToSyncAnchor:toNSData(anchor) moreComing:moreComing];
  }

  void finishEnumeratingWithError(const platform::NSError &error) override {
    [observer_.get() finishEnumeratingWithError:toNSError(error)];
  }

 private:
  Retained<id<NSFileProviderChangeObserver>> observer_;
};

}  // namespace

@implementation DirectoryEnumerator

- (instancetype)initWithEnumerator:(std::shared_ptr<platform::NSFileProviderEnumerator>)enumerator {
  self = [super init];
  if (self != nil) _enumerator = std::move(enumerator);
  return self;
}

- (instancetype)init {
  tulo::apple::stopForUnavailableInitializer(self);
}

- (void)invalidate {
  _enumerator->invalidate();
}

- (void)enumerateItemsForObserver:(id<NSFileProviderEnumerationObserver>)observer
                   startingAtPage:(NSFileProviderPage)page {
  _enumerator->enumerateItems(std::make_shared<ItemObserver>(observer), tulo::apple::toData(page));
}

- (void)enumerateChangesForObserver:(id<NSFileProviderChangeObserver>)observer
                     fromSyncAnchor:(NSFileProviderSyncAnchor)syncAnchor {
  _enumerator->enumerateChanges(std::make_shared<ChangeObserver>(observer),
                                tulo::apple::toData(syncAnchor));
}

- (void)currentSyncAnchorWithCompletionHandler:
    (void (^)(NSFileProviderSyncAnchor currentAnchor))completionHandler {
  const tulo::apple::Completion<NSFileProviderSyncAnchor> completion(completionHandler);
  _enumerator->currentSyncAnchor(
      [completion](const std::optional<platform::NSFileProviderSyncAnchor> &anchor) {
        completion(toNSData(anchor));
      });
}

@end
