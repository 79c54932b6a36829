// Names of files: which ones the host accepts, and under which it stores a name that is taken.
//
// Threads: pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tulo::host {

inline constexpr std::size_t maximumNameLength = 255;

// Why `name` cannot be the name of a file, in words; empty if it can.
std::string whyInvalidName(std::string_view name);

// Throws invalid_name with that reason.
void requireValidName(std::string_view name);

// The name on disk for the `number`-th sibling that is shown as `name`: the name itself for 1, else
// with "~" and the number before its extension, shortened where the file system needs it.
std::string diskNameVariant(std::string_view name, unsigned number);

}  // namespace tulo::host
