// Items that the system hands over: templates for new items, and items with changed values.
#pragma once

#import <FileProvider/FileProvider.h>

#include <optional>

#include "platform/FileProvider.h"

namespace tulo::apple {

// Asks the system's object on each access, for optional properties only if it has them. Keeps the
// object alive as long as the item lives.
platform::ItemPointer toItem(NSFileProviderItem item);

// An absent component of a version becomes the empty byte string.
platform::NSFileProviderItemVersion toItemVersion(NSFileProviderItemVersion* version);

// Nothing for nil.
std::optional<platform::NSFileProviderItemVersion> toOptionalItemVersion(
    NSFileProviderItemVersion* version);

}  // namespace tulo::apple
