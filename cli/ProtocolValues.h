// The protocol's values as JSON, for standard output.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>

#include "platform/FileProvider.h"

namespace tulo::cli {

using JSON = nlohmann::ordered_json;

// null for an absent item.
JSON itemValue(const platform::ItemPointer& item);

// null for an absent error.
JSON errorValue(const std::optional<platform::NSError>& error);

JSON progressValue(const platform::Progress& progress);

}  // namespace tulo::cli
