// Ties the class that the system instantiates to the extension.
#include "extension/FileProviderExtension.h"
#include "platform/apple/ExtensionFactory.h"

namespace tulo::apple {

std::shared_ptr<platform::NSFileProviderReplicatedExtension> makeExtension(
    const platform::DomainPointer& domain) {
  return std::make_shared<tulo::FileProviderExtension>(domain);
}

}  // namespace tulo::apple
