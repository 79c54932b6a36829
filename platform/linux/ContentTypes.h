// The table from the content types of shared-mime-info to uniform type identifiers.
//
// Threads: pure functions.
#pragma once

#include <optional>
#include <string_view>

namespace tulo::platform {

// The identifier for an extension in lower case that shared-mime-info does not know or takes for
// something rarer than what users mean by it; nothing for any other.
std::optional<std::string_view> typeIdentifierForExtension(std::string_view extension);

// The identifier for a MIME type: its own one, else the general one of its class (text, image,
// audio, video); nothing for a type of another class that is not in the table.
std::optional<std::string_view> typeIdentifierForMIMEType(std::string_view mimeType);

}  // namespace tulo::platform
