// Item identifiers: the strings by which the system knows the rows of the index.
//
// An identifier is a two-character prefix, which says in which table the row lives, followed
// directly by the row's ULID. A ULID is opaque text here: any string, the empty one included.
// The root of the tree has no identifier of this form; callers recognise it before they parse.
//
// Threads: pure functions.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tulo {

struct ItemID {
  ItemID() = delete;

  static constexpr std::string_view folderPrefix = "f:";
  static constexpr std::string_view filePrefix = "i:";

  struct Parsed {
    std::string ulid;
    bool isFolder;

    bool operator==(const Parsed&) const = default;
  };

  static std::string folder(std::string_view ulid);
  static std::string file(std::string_view ulid);

  // Nothing when the identifier carries neither prefix. Only one prefix is removed.
  static std::optional<Parsed> parse(std::string_view identifier);
};

}  // namespace tulo
