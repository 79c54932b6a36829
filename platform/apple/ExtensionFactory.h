// Where the class that the system instantiates gets the extension that it stands for.
#pragma once

#include <memory>

#include "platform/FileProvider.h"

namespace tulo::apple {

// Makes the extension of one domain; never null, and a platform::NSFileProviderThumbnailing as
// well. Defined by the executable, since the platform knows of no particular extension. May be
// called on any thread.
std::shared_ptr<platform::NSFileProviderReplicatedExtension> makeExtension(
    const platform::DomainPointer& domain);

}  // namespace tulo::apple
