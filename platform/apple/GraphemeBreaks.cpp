#include "platform/apple/GraphemeBreaks.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "platform/UTF8.h"
#include "platform/apple/GraphemeBreakTable.h"

namespace tulo::apple {

namespace {

using platform::utf8::firstCodePoint;
using platform::utf8::lastCodePoint;
using platform::utf8::lastSequenceLength;
using enum GraphemeBreak;

constexpr char32_t firstSyllable = 0xAC00;
constexpr char32_t lastSyllable = 0xD7A3;
constexpr char32_t syllablesWithOneVowel = 28;

bool isControl(GraphemeBreak value) {
  return value == control || value == carriageReturn || value == lineFeed;
}

bool isSameSyllable(GraphemeBreak before, GraphemeBreak after) {
  switch (before) {
    case hangulL:
      return after == hangulL || after == hangulV || after == hangulLV || after == hangulLVT;
    case hangulV:
    case hangulLV:
      return after == hangulV || after == hangulT;
    case hangulT:
    case hangulLVT:
      return after == hangulT;
    default:
      return false;
  }
}

// Takes the last code point off the text and gives its class; nothing at the beginning of the text
// and behind a byte that is not part of well-formed UTF-8.
std::optional<GraphemeBreak> takeLast(std::string_view& text) {
  const auto codePoint = lastCodePoint(text);
  if (!codePoint) return std::nullopt;
  text.remove_suffix(lastSequenceLength(text));
  return graphemeBreak(*codePoint);
}

// Whether the text, which ends with a zero-width joiner, has a pictograph before it that the joiner
// can tie to another one.
bool endsWithJoinedPictograph(std::string_view text) {
  takeLast(text);
  auto value = takeLast(text);
  while (value == extend) {
    value = takeLast(text);
  }
  return value == pictographic;
}

// Whether the text ends with the first half of a pair of regional indicators.
bool endsWithHalfFlag(std::string_view text) {
  bool half = false;
  while (takeLast(text) == regionalIndicator) {
    half = !half;
  }
  return half;
}

}  // namespace

GraphemeBreak graphemeBreak(char32_t codePoint) {
  if (codePoint >= firstSyllable && codePoint <= lastSyllable) {
    return (codePoint - firstSyllable) % syllablesWithOneVowel == 0 ? hangulLV : hangulLVT;
  }
  const auto* range =
      std::upper_bound(std::begin(graphemeBreakTable), std::end(graphemeBreakTable), codePoint,
                       [](char32_t wanted, const GraphemeBreakRange& candidate) {
                         return wanted < candidate.first;
                       });
  if (range == std::begin(graphemeBreakTable)) return other;
  --range;
  return codePoint <= range->last ? range->value : other;
}

bool isCharacterBoundary(std::string_view text, std::size_t offset) {
  if (offset == 0 || offset == text.size()) return true;
  const std::string_view head = text.substr(0, offset);
  const auto previous = lastCodePoint(head);
  const auto next = firstCodePoint(text.substr(offset));
  if (!previous || !next) return true;
  const GraphemeBreak before = graphemeBreak(*previous);
  const GraphemeBreak after = graphemeBreak(*next);
  if (before == carriageReturn && after == lineFeed) return false;
  if (isControl(before) || isControl(after)) return true;
  if (after == extend || after == zeroWidthJoiner || after == spacingMark) return false;
  if (before == prepend || isSameSyllable(before, after)) return false;
  if (before == zeroWidthJoiner && after == pictographic) return !endsWithJoinedPictograph(head);
  if (before == regionalIndicator && after == regionalIndicator) return !endsWithHalfFlag(head);
  return true;
}

std::size_t previousCharacter(std::string_view text, std::size_t offset) {
  do {
    offset -= std::max<std::size_t>(lastSequenceLength(text.substr(0, offset)), 1);
  } while (!isCharacterBoundary(text, offset));
  return offset;
}

}  // namespace tulo::apple
