// Duplicate-name resolution done the slow and plain way, to compare the fast one with.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tulo::test {

// ULID and name.
using ModelEntry = std::pair<std::string, std::string>;

// The display names of the entries, in their order, by counting for each entry how many names of
// its group come before it. ASCII only.
std::vector<std::string> modelOfResolve(const std::vector<std::string>& reserved,
                                        const std::vector<ModelEntry>& entries);

}  // namespace tulo::test
