// How the provider's file names are spelled in a Linux folder.
//
// A name that a folder can hold is shown as it is. One that it cannot is escaped with "%": "/" is
// shown as "%2F", NUL as "%00", the names "." and ".." as "%2E" and "%2E%2E", the empty name as
// "%~". A "%" of the name itself is escaped ("%25") only where it could be taken for one of these.
// A name over 255 bytes is cut and carries "%~" and 16 hexadecimal digits of its hash before its
// extension; the replica keeps the whole name for it.
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

// The file name behind a spelling; nothing for a cut or marked one, whose name only the replica
// knows.
std::optional<std::string> filename(std::string_view shownName);

}  // namespace tulo::names
