// The principal class of the extension's bundle.
#pragma once

#import <FileProvider/FileProvider.h>

#include <memory>

#include "platform/FileProvider.h"

// One object for each domain, made by the system. It converts arguments, calls the extension's own
// object, and converts the answer.
//
// Threads: the system may send every message on any thread, several at a time.
// Lifetime: requests that are running when the last reference goes run to their end.
@interface FileProviderExtension
    : NSObject <NSFileProviderReplicatedExtension, NSFileProviderThumbnailing> {
 @private
  NSFileProviderDomain *_domain;
  std::shared_ptr<tulo::platform::NSFileProviderReplicatedExtension> _extension;
  std::shared_ptr<tulo::platform::NSFileProviderThumbnailing> _thumbnailing;
}

@property(nonatomic, readonly, retain) NSFileProviderDomain *domain;

// Stops the process: there is no extension without a domain.
- (instancetype)init;

@end
