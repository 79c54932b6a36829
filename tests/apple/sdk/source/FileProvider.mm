#import <FileProvider/FileProvider.h>

#include <atomic>

#include "tests/apple/sdk/StandIns.h"

namespace {

std::atomic<bool> managersExist{true};
std::atomic<int> managers{0};

}  // namespace

NSFileProviderItemIdentifier const NSFileProviderRootContainerItemIdentifier =
    @"NSFileProviderRootContainerItemIdentifier";
NSFileProviderItemIdentifier const NSFileProviderWorkingSetContainerItemIdentifier =
    @"NSFileProviderWorkingSetContainerItemIdentifier";
NSFileProviderItemIdentifier const NSFileProviderTrashContainerItemIdentifier =
    @"NSFileProviderTrashContainerItemIdentifier";
NSFileProviderPage NSFileProviderInitialPageSortedByName;
NSFileProviderPage NSFileProviderInitialPageSortedByDate;
NSErrorDomain const NSFileProviderErrorDomain = @"NSFileProviderErrorDomain";

@implementation NSFileProviderItemVersion
@synthesize contentVersion = _contentVersion;
@synthesize metadataVersion = _metadataVersion;

+ (void)load {
  NSFileProviderInitialPageSortedByName = [[NSData alloc] initWithBytes:"name" length:4];
  NSFileProviderInitialPageSortedByDate = [[NSData alloc] initWithBytes:"date" length:4];
}

- (instancetype)initWithContentVersion:(NSData *)contentVersion
                       metadataVersion:(NSData *)metadataVersion {
  self = [super init];
  if (self != nil) {
    _contentVersion = [contentVersion copy];
    _metadataVersion = [metadataVersion copy];
  }
  return self;
}

- (void)dealloc {
  [_contentVersion release];
  [_metadataVersion release];
  [super dealloc];
}
@end

@implementation NSFileProviderDomain
@synthesize identifier = _identifier;
@synthesize displayName = _displayName;

- (instancetype)initWithIdentifier:(NSFileProviderDomainIdentifier)identifier
                       displayName:(NSString *)displayName {
  self = [super init];
  if (self != nil) {
    _identifier = [identifier copy];
    _displayName = [displayName copy];
  }
  return self;
}

- (void)dealloc {
  [_identifier release];
  [_displayName release];
  [super dealloc];
}
@end

@interface NSFileProviderManager ()
- (instancetype)initForTuloDomain;
@end

@implementation NSFileProviderManager

- (instancetype)initForTuloDomain {
  self = [super init];
  if (self != nil) ++managers;
  return self;
}

+ (instancetype)managerForDomain:(NSFileProviderDomain *)domain {
  if (domain == nil || !managersExist) return nil;
  return [[[NSFileProviderManager alloc] initForTuloDomain] autorelease];
}

- (void)dealloc {
  --managers;
  [super dealloc];
}
@end

@implementation NSFileProviderRequest
- (BOOL)isSystemRequest {
  return NO;
}
- (BOOL)isFileViewerRequest {
  return YES;
}
- (NSURL *)requestingExecutable {
  return nil;
}
@end

namespace tulo::sdk {

void setManagersExist(bool exist) { managersExist = exist; }

int liveManagers() { return managers; }

}  // namespace tulo::sdk
