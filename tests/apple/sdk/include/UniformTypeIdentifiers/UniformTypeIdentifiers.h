// Uniform type identifiers, as far as this project uses them.
#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

@interface UTType : NSObject <NSCopying> {
 @private
  NSString *_identifier;
}
- (instancetype)init NS_UNAVAILABLE;
+ (nullable instancetype)typeWithIdentifier:(NSString *)identifier;
+ (nullable instancetype)typeWithFilenameExtension:(NSString *)filenameExtension;
+ (nullable instancetype)typeWithFilenameExtension:(NSString *)filenameExtension
                                  conformingToType:(UTType *)supertype;
@property(readonly) NSString *identifier;
- (BOOL)conformsToType:(UTType *)type;
@end

#ifdef __cplusplus
extern "C" {
#endif

// Constants on a Mac; here they are made when the runtime has loaded the class.
extern UTType *UTTypeItem;
extern UTType *UTTypeData;
extern UTType *UTTypeFolder;
extern UTType *UTTypePackage;

#ifdef __cplusplus
}
#endif

NS_ASSUME_NONNULL_END
