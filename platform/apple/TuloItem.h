// The object that the system sees for one item of the extension.
#pragma once

#import <FileProvider/FileProvider.h>

#include <vector>

#include "platform/FileProvider.h"

// Responds to the properties that the extension's items declare and to no other optional one, so
// that the system's defaults hold for the rest. Immutable; any thread.
@interface TuloItem : NSObject <NSFileProviderItem> {
 @private
  tulo::platform::ItemPointer _item;
}

- (instancetype)initWithItem:(tulo::platform::ItemPointer)item;

// Stops the process: there is no item without metadata.
- (instancetype)init;

@end

namespace tulo::apple {

// Nil for a null pointer. Autoreleased.
NSFileProviderItem toNSItem(const platform::ItemPointer &item);

NSArray *toNSItems(const std::vector<platform::ItemPointer> &items);

}  // namespace tulo::apple
