// How the provider's file names are spelled in a Linux folder.
//
// A name that a folder can hold is shown as it is. One that it cannot is escaped with "%": "/" is
// shown as "%2F", NUL as "%00", the names "." and ".." as "%2E" and "%2E%2E", the empty name as
// "%~". A name over 255 bytes is cut and carries "%~" and 16 hexadecimal digits of its hash before
// its extension. A spelling cannot be read back, since any name may look like one: the replica
// keeps the whole name for each that is shown otherwise.
//
// Threads: pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tulo::names {

inline constexpr std::size_t kLongestName = 255;

// The spelling of a provider's file name.
std::string shown(std::string_view filename);

// The spelling for the second and further items of one name in one folder, told apart by the
// item's identifier. `attempt` counts up when even that spelling is taken.
std::string marked(std::string_view filename, std::string_view identifier, unsigned attempt);

// The spelling of any text as a name for a file of the service's own, from which it can be read
// back: a "%" that could be taken for an escape is one itself ("%25").
std::string reversible(std::string_view text);
// The text behind such a spelling; nothing for one that was cut.
std::optional<std::string> textBehind(std::string_view reversible);

}  // namespace tulo::names
