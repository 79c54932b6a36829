// Where one user-perceived character ends and the next begins, by the Unicode rules for extended
// grapheme clusters.
//
// Foundation's composed character sequences are close to these clusters, but their exact extent is
// promised nowhere and differs between versions of the system, while names that are stored and
// compared must come out the same everywhere. So the rules and their data are this project's own.
//
// Threads: pure functions.
#pragma once

#include <cstddef>
#include <string_view>

namespace tulo::apple {

enum class GraphemeBreak : unsigned char {
  other,
  carriageReturn,
  lineFeed,
  control,
  extend,
  zeroWidthJoiner,
  spacingMark,
  prepend,
  regionalIndicator,
  hangulL,
  hangulV,
  hangulT,
  hangulLV,
  hangulLVT,
  pictographic,
};

struct GraphemeBreakRange {
  char32_t first;
  char32_t last;
  GraphemeBreak value;
};

GraphemeBreak graphemeBreak(char32_t codePoint);

// Whether a character begins at the offset, which is the beginning of a code point or the end of
// the text. A byte that is not part of well-formed UTF-8 is a character of its own.
bool isCharacterBoundary(std::string_view text, std::size_t offset);

// The offset of the character before the one that begins at `offset`, with offset > 0.
std::size_t previousCharacter(std::string_view text, std::size_t offset);

}  // namespace tulo::apple
