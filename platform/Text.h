// Text in UTF-8, walked by user-perceived characters (extended grapheme clusters).
//
// None of these functions depends on a locale, and none fails on bytes that are not valid UTF-8:
// such bytes count as one character each and are carried through unchanged.
//
// Threads: pure functions.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tulo::platform::text {

// The default lowercase mapping of the whole string, with its context rules (final sigma).
std::string lowercased(std::string_view text);

// The canonical composition (NFC): equal bytes for canonically equivalent spellings.
std::string precomposed(std::string_view text);

// The number of bytes at the front of `text` that `prefix` takes up, if the text begins with those
// whole characters; nothing if it does not, also when the last of them is part of a longer
// character of the text. `prefix` is ASCII.
std::optional<std::size_t> lengthOfPrefix(std::string_view text, std::string_view prefix);

// The byte offset of the last "." that is a character of its own, or nothing.
std::optional<std::size_t> offsetOfLastDot(std::string_view text);

// The last `count` characters, or all of the text if it has fewer. A view into `text`.
std::string_view suffix(std::string_view text, std::size_t count);

// The text after the last "." of the last path component; empty when that component has no dot,
// begins with its only dot, or ends with one.
std::string pathExtension(std::string_view path);

}  // namespace tulo::platform::text
