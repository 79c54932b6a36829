// What the principal class of an extension answers.
#pragma once

#import <FileProvider/NSFileProviderEnumerating.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_OPTIONS(NSUInteger, NSFileProviderCreateItemOptions) {
  NSFileProviderCreateItemMayAlreadyExist = 1 << 0,
  NSFileProviderCreateItemDeletionConflicted = 1 << 1,
};
typedef NS_OPTIONS(NSUInteger, NSFileProviderModifyItemOptions) {
  NSFileProviderModifyItemMayAlreadyExist = 1 << 0,
};
typedef NS_OPTIONS(NSUInteger, NSFileProviderDeleteItemOptions) {
  NSFileProviderDeleteItemRecursive = 1 << 0,
};

@protocol NSFileProviderReplicatedExtension <NSObject, NSFileProviderEnumerating>
- (instancetype)initWithDomain:(NSFileProviderDomain *)domain;
- (void)invalidate;

- (NSProgress *)itemForIdentifier:(NSFileProviderItemIdentifier)identifier
                          request:(NSFileProviderRequest *)request
                completionHandler:
                    (void (^)(NSFileProviderItem _Nullable, NSError *_Nullable))completionHandler;

- (NSProgress *)
    fetchContentsForItemWithIdentifier:(NSFileProviderItemIdentifier)itemIdentifier
                               version:(nullable NSFileProviderItemVersion *)requestedVersion
                               request:(NSFileProviderRequest *)request
                     completionHandler:(void (^)(NSURL *_Nullable fileContents,
                                                 NSFileProviderItem _Nullable item,
                                                 NSError *_Nullable error))completionHandler;

- (NSProgress *)createItemBasedOnTemplate:(NSFileProviderItem)itemTemplate
                                   fields:(NSFileProviderItemFields)fields
                                 contents:(nullable NSURL *)url
                                  options:(NSFileProviderCreateItemOptions)options
                                  request:(NSFileProviderRequest *)request
                        completionHandler:(void (^)(NSFileProviderItem _Nullable createdItem,
                                                    NSFileProviderItemFields stillPendingFields,
                                                    BOOL shouldFetchContent,
                                                    NSError *_Nullable error))completionHandler;

- (NSProgress *)modifyItem:(NSFileProviderItem)item
               baseVersion:(NSFileProviderItemVersion *)version
             changedFields:(NSFileProviderItemFields)changedFields
                  contents:(nullable NSURL *)newContents
                   options:(NSFileProviderModifyItemOptions)options
                   request:(NSFileProviderRequest *)request
         completionHandler:(void (^)(NSFileProviderItem _Nullable item,
                                     NSFileProviderItemFields stillPendingFields,
                                     BOOL shouldFetchContent,
                                     NSError *_Nullable error))completionHandler;

- (NSProgress *)deleteItemWithIdentifier:(NSFileProviderItemIdentifier)identifier
                             baseVersion:(NSFileProviderItemVersion *)version
                                 options:(NSFileProviderDeleteItemOptions)options
                                 request:(NSFileProviderRequest *)request
                       completionHandler:(void (^)(NSError *_Nullable))completionHandler;
@optional
- (void)importDidFinishWithCompletionHandler:(void (^)(void))completionHandler;
- (void)materializedItemsDidChangeWithCompletionHandler:(void (^)(void))completionHandler;
- (void)pendingItemsDidChangeWithCompletionHandler:(void (^)(void))completionHandler;
@end

@protocol NSFileProviderThumbnailing <NSObject>
- (NSProgress *)
    fetchThumbnailsForItemIdentifiers:(NSArray *)itemIdentifiers
                        requestedSize:(CGSize)size
        perThumbnailCompletionHandler:
            (void (^)(NSFileProviderItemIdentifier identifier, NSData *_Nullable imageData,
                      NSError *_Nullable error))perThumbnailCompletionHandler
                    completionHandler:(void (^)(NSError *_Nullable error))completionHandler;
@end

NS_ASSUME_NONNULL_END
