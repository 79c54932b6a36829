// Domains, managers and requests of the system behind the neutral ones.
#pragma once

#import <FileProvider/FileProvider.h>

#include "platform/FileProvider.h"

namespace tulo::apple {

// Keeps the system's object alive as long as the domain lives.
platform::DomainPointer toDomain(NSFileProviderDomain* domain);

platform::NSFileProviderRequest toRequest(NSFileProviderRequest* request);

}  // namespace tulo::apple
