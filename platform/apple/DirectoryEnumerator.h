// The enumerator that the system holds for one container.
#pragma once

#import <FileProvider/FileProvider.h>

#include <memory>

#include "platform/FileProvider.h"

// Any thread. Keeps the extension's own enumerator alive, and an observer only during a call of
// the system's and as long as that enumerator shares it.
@interface DirectoryEnumerator : NSObject <NSFileProviderEnumerator> {
 @private
  std::shared_ptr<tulo::platform::NSFileProviderEnumerator> _enumerator;
}

- (instancetype)initWithEnumerator:
    (std::shared_ptr<tulo::platform::NSFileProviderEnumerator>)enumerator;

// Stops the process: there is no enumerator without a container.
- (instancetype)init;

@end
