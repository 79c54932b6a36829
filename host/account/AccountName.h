// The names of accounts, and the files of their indexes.
//
// Threads: pure functions.
#pragma once

#include <string>

namespace tulo::host {

inline constexpr const char* primaryAccount = "primary";

// The name becomes part of a file name, which the extension opens as a part of a URI. Throws
// StartError for one that cannot be that of a further account.
void requireFurtherAccountName(const std::string& name);

// The name of an account's index in the container.
std::string indexFileName(const std::string& account);

}  // namespace tulo::host
