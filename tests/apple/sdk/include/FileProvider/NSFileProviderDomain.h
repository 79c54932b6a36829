// Domains, their managers, and requests.
#pragma once

#import <FileProvider/NSFileProviderDefines.h>

NS_ASSUME_NONNULL_BEGIN

@interface NSFileProviderDomain : NSObject {
 @private
  NSString *_identifier;
  NSString *_displayName;
}
- (instancetype)initWithIdentifier:(NSFileProviderDomainIdentifier)identifier
                       displayName:(NSString *)displayName;
@property(readonly, copy) NSFileProviderDomainIdentifier identifier;
@property(readonly, copy) NSString *displayName;
@end

@interface NSFileProviderManager : NSObject
- (instancetype)init NS_UNAVAILABLE;
+ (nullable instancetype)managerForDomain:(NSFileProviderDomain *)domain;
@end

@interface NSFileProviderRequest : NSObject
@property(nonatomic, readonly) BOOL isSystemRequest;
@property(nonatomic, readonly) BOOL isFileViewerRequest;
@property(nonatomic, readonly, copy, nullable) NSURL *requestingExecutable;
@end

NS_ASSUME_NONNULL_END
