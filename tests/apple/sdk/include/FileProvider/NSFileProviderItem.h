// Items, their versions, and the masks that go with them.
#pragma once

#import <FileProvider/NSFileProviderDefines.h>
#import <UniformTypeIdentifiers/UniformTypeIdentifiers.h>

NS_ASSUME_NONNULL_BEGIN

typedef NS_OPTIONS(NSUInteger, NSFileProviderItemCapabilities) {
  NSFileProviderItemCapabilitiesAllowsReading = 1 << 0,
  NSFileProviderItemCapabilitiesAllowsWriting = 1 << 1,
  NSFileProviderItemCapabilitiesAllowsReparenting = 1 << 2,
  NSFileProviderItemCapabilitiesAllowsRenaming = 1 << 3,
  NSFileProviderItemCapabilitiesAllowsTrashing = 1 << 4,
  NSFileProviderItemCapabilitiesAllowsDeleting = 1 << 5,
  NSFileProviderItemCapabilitiesAllowsEvicting = 1 << 6,
  NSFileProviderItemCapabilitiesAllowsExcludingFromSync = 1 << 7,
};

typedef NS_OPTIONS(NSUInteger, NSFileProviderItemFields) {
  NSFileProviderItemContents = 1 << 0,
  NSFileProviderItemFilename = 1 << 1,
  NSFileProviderItemParentItemIdentifier = 1 << 2,
  NSFileProviderItemLastUsedDate = 1 << 3,
  NSFileProviderItemTagData = 1 << 4,
  NSFileProviderItemFavoriteRank = 1 << 5,
  NSFileProviderItemCreationDate = 1 << 6,
  NSFileProviderItemContentModificationDate = 1 << 7,
  NSFileProviderItemFileSystemFlags = 1 << 8,
  NSFileProviderItemExtendedAttributes = 1 << 9,
  NSFileProviderItemTypeAndCreator = 1 << 10,
};

typedef NS_OPTIONS(NSUInteger, NSFileProviderFileSystemFlags) {
  NSFileProviderFileSystemUserExecutable = 1 << 0,
  NSFileProviderFileSystemUserReadable = 1 << 1,
  NSFileProviderFileSystemUserWritable = 1 << 2,
  NSFileProviderFileSystemHidden = 1 << 3,
  NSFileProviderFileSystemPathExtensionHidden = 1 << 4,
};

typedef NS_ENUM(NSInteger, NSFileProviderContentPolicy) {
  NSFileProviderContentPolicyInherited = 0,
  NSFileProviderContentPolicyDownloadLazily = 1,
};

typedef struct {
  unsigned int type;
  unsigned int creator;
} NSFileProviderTypeAndCreator;

@interface NSFileProviderItemVersion : NSObject {
 @private
  NSData *_contentVersion;
  NSData *_metadataVersion;
}
- (instancetype)initWithContentVersion:(NSData *)contentVersion
                       metadataVersion:(NSData *)metadataVersion;
@property(nonatomic, readonly) NSData *contentVersion;
@property(nonatomic, readonly) NSData *metadataVersion;
@end

@protocol NSFileProviderItem <NSObject>
@property(nonatomic, readonly, copy) NSFileProviderItemIdentifier itemIdentifier;
@property(nonatomic, readonly, copy) NSFileProviderItemIdentifier parentItemIdentifier;
@property(nonatomic, readonly, copy) NSString *filename;
@optional
@property(nonatomic, readonly, copy) UTType *contentType;
@property(nonatomic, readonly) NSFileProviderItemCapabilities capabilities;
@property(nonatomic, readonly) NSFileProviderFileSystemFlags fileSystemFlags;
@property(nonatomic, readonly, copy, nullable) NSNumber *documentSize;
@property(nonatomic, readonly, copy, nullable) NSNumber *childItemCount;
@property(nonatomic, readonly, copy, nullable) NSDate *creationDate;
@property(nonatomic, readonly, copy, nullable) NSDate *contentModificationDate;
@property(nonatomic, readonly, strong) NSDictionary *extendedAttributes;
@property(nonatomic, readonly, copy, nullable) NSDate *lastUsedDate;
@property(nonatomic, readonly, copy, nullable) NSData *tagData;
@property(nonatomic, readonly, getter=isUploaded) BOOL uploaded;
@property(nonatomic, readonly, getter=isUploading) BOOL uploading;
@property(nonatomic, readonly, copy, nullable) NSError *uploadingError;
@property(nonatomic, readonly, getter=isDownloaded) BOOL downloaded;
@property(nonatomic, readonly, getter=isDownloading) BOOL downloading;
@property(nonatomic, readonly, copy, nullable) NSError *downloadingError;
@property(nonatomic, readonly, getter=isMostRecentVersionDownloaded)
    BOOL mostRecentVersionDownloaded;
@property(nonatomic, readonly, getter=isShared) BOOL shared;
@property(nonatomic, readonly, getter=isSharedByCurrentUser) BOOL sharedByCurrentUser;
@property(nonatomic, readonly, strong, nullable) NSPersonNameComponents *ownerNameComponents;
@property(nonatomic, readonly, strong, nullable)
    NSPersonNameComponents *mostRecentEditorNameComponents;
@property(nonatomic, readonly, strong) NSFileProviderItemVersion *itemVersion;
@property(nonatomic, readonly, copy, nullable) NSString *symlinkTargetPath;
@property(nonatomic, readonly, strong, nullable) NSDictionary *userInfo;
@property(nonatomic, readonly) NSFileProviderTypeAndCreator typeAndCreator;
@property(nonatomic, readonly) NSFileProviderContentPolicy contentPolicy;
@end

typedef id<NSFileProviderItem> NSFileProviderItem;

NS_ASSUME_NONNULL_END
