// What the system side of the protocol (the service, a test) provides to this process on Linux.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/FileProvider.h"

namespace tulo::platform {

using ManagerSource = std::function<std::shared_ptr<NSFileProviderManager>(const DomainPointer&)>;

// Replaces what NSFileProviderManager::managerForDomain asks; an empty source restores the default,
// which has a plain manager for each domain. Any thread.
void setManagerSource(ManagerSource source);

// Replaces the main bundle's information dictionary: its string values by key. Nothing restores
// the default, which holds the project's version as "CFBundleShortVersionString". Any thread.
void setMainBundleInfo(std::optional<std::map<std::string, std::string>> info);

}  // namespace tulo::platform
