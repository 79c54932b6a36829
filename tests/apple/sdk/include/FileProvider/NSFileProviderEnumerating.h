// Enumerators and their observers.
#pragma once

#import <FileProvider/NSFileProviderDomain.h>
#import <FileProvider/NSFileProviderItem.h>

NS_ASSUME_NONNULL_BEGIN

@protocol NSFileProviderEnumerationObserver <NSObject>
- (void)didEnumerateItems:(NSArray *)updatedItems;
- (void)finishEnumeratingUpToPage:(nullable NSFileProviderPage)nextPage;
- (void)finishEnumeratingWithError:(NSError *)error;
@optional
@property(nonatomic, readonly) NSInteger suggestedPageSize;
@end

@protocol NSFileProviderChangeObserver <NSObject>
- (void)didUpdateItems:(NSArray *)updatedItems;
- (void)didDeleteItemsWithIdentifiers:(NSArray *)deletedItemIdentifiers;
- (void)finishEnumeratingChangesUpToSyncAnchor:(NSFileProviderSyncAnchor)anchor
                                    moreComing:(BOOL)moreComing;
- (void)finishEnumeratingWithError:(NSError *)error;
@optional
@property(nonatomic, readonly) NSInteger suggestedBatchSize;
@end

@protocol NSFileProviderEnumerator <NSObject>
- (void)invalidate;
- (void)enumerateItemsForObserver:(id<NSFileProviderEnumerationObserver>)observer
                   startingAtPage:(NSFileProviderPage)page;
@optional
- (void)enumerateChangesForObserver:(id<NSFileProviderChangeObserver>)observer
                     fromSyncAnchor:(NSFileProviderSyncAnchor)syncAnchor;
- (void)currentSyncAnchorWithCompletionHandler:
    (void (^)(_Nullable NSFileProviderSyncAnchor currentAnchor))completionHandler;
@end

@protocol NSFileProviderEnumerating <NSObject>
- (nullable id<NSFileProviderEnumerator>)
    enumeratorForContainerItemIdentifier:(NSFileProviderItemIdentifier)containerItemIdentifier
                                 request:(NSFileProviderRequest *)request
                                   error:(NSError *_Nullable *)error;
@end

NS_ASSUME_NONNULL_END
