// The main bundle's information dictionary.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tulo::platform {

// The dictionary's value for the key if there is one and it is a string; nothing when there is no
// dictionary, no such key, or a value of another type. May be called on any thread.
std::optional<std::string> mainBundleInfoString(std::string_view key);

}  // namespace tulo::platform
