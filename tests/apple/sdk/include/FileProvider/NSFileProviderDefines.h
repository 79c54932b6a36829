// Identifiers, constants and error codes.
#pragma once

#import <Foundation/Foundation.h>

typedef NSString *NSFileProviderItemIdentifier;
typedef NSString *NSFileProviderDomainIdentifier;
typedef NSData *NSFileProviderPage;
typedef NSData *NSFileProviderSyncAnchor;

#ifdef __cplusplus
extern "C" {
#endif

extern NSFileProviderItemIdentifier const NSFileProviderRootContainerItemIdentifier;
extern NSFileProviderItemIdentifier const NSFileProviderWorkingSetContainerItemIdentifier;
extern NSFileProviderItemIdentifier const NSFileProviderTrashContainerItemIdentifier;
// Constants on a Mac; here they are made when the runtime has loaded a class of this framework.
extern NSFileProviderPage NSFileProviderInitialPageSortedByName;
extern NSFileProviderPage NSFileProviderInitialPageSortedByDate;

extern NSErrorDomain const NSFileProviderErrorDomain;

#ifdef __cplusplus
}
#endif

typedef NS_ENUM(NSInteger, NSFileProviderErrorCode) {
  NSFileProviderErrorNotAuthenticated = -1000,
  NSFileProviderErrorFilenameCollision = -1001,
  NSFileProviderErrorSyncAnchorExpired = -1002,
  NSFileProviderErrorInsufficientQuota = -1003,
  NSFileProviderErrorServerUnreachable = -1004,
  NSFileProviderErrorNoSuchItem = -1005,
  NSFileProviderErrorCannotSynchronize = -2005,
};
