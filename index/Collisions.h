// Display names for the files of one folder, unique among the folder's names.
//
// Names that differ only in case, or only in canonically equivalent spellings of the same letters,
// clash. In a group of clashing names the file with the smallest ULID keeps its name and the others
// are marked with the end of their ULID; folders always keep theirs, so that a file which clashes
// with a folder is marked in any case. The same contents give the same names whatever the order of
// the rows. Marked names are not checked again.
//
// Threads: pure functions. Nothing is logged and nothing can fail.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tulo {

struct Collisions {
  Collisions() = delete;

  // How many characters of the ULID go into a marked name.
  static constexpr std::size_t tagLength = 6;

  // Borrowed text of one file; must outlive the call.
  struct Entry {
    std::string_view ulid;
    std::string_view name;
  };

  // The name with the last characters of the ULID before its last extension: "a (ABCDEF).txt".
  static std::string markedName(std::string_view name, std::string_view ulid);

  // One display name for each entry, in the entries' order. `reserved` are the sibling folders'
  // names.
  static std::vector<std::string> resolve(std::span<const std::string_view> reserved,
                                          std::span<const Entry> entries);

  // An entry that must not keep its name, by its position in the list.
  struct Marked {
    std::size_t position;
    std::string name;
  };

  // What resolve decides, without a copy of each name that stays as it is: a large folder has few
  // others. In no promised order.
  static std::vector<Marked> marked(std::span<const std::string_view> reserved,
                                    std::span<const Entry> entries);

  // resolve's answer for the one entry at `position`, found by a look at each other name.
  static std::string displayName(std::span<const std::string_view> reserved,
                                 std::span<const Entry> entries, std::size_t position);
};

}  // namespace tulo
