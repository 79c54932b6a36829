// What an item allows programs to do with it, as the host said.
//
// Threads: pure functions.
#pragma once

#include "platform/FileProvider.h"
#include "service/replica/Node.h"

namespace tulo {

// What is made here allows everything until the host says otherwise.
inline constexpr platform::NSFileProviderItemCapabilities kEverything =
    platform::NSFileProviderItemCapabilitiesAllowsReading |
    platform::NSFileProviderItemCapabilitiesAllowsWriting |
    platform::NSFileProviderItemCapabilitiesAllowsReparenting |
    platform::NSFileProviderItemCapabilitiesAllowsRenaming |
    platform::NSFileProviderItemCapabilitiesAllowsDeleting;

inline bool allows(const Node& node, platform::NSFileProviderItemCapabilities capability) {
  return (node.capabilities & capability) == capability;
}

inline bool allowsAdding(const Node& folder) {
  return allows(folder, platform::NSFileProviderItemCapabilitiesAllowsAddingSubItems);
}

}  // namespace tulo
