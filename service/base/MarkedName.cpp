#include "service/base/MarkedName.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/UTF8.h"
#include "service/base/Names.h"

namespace tulo {

namespace {

namespace utf8 = platform::utf8;

// One that is longer is no extension but a part of the name.
constexpr std::size_t kLongestExtension = 32;

struct Range {
  std::uint32_t first;
  std::uint32_t last;
};

// What is drawn together with the character before it: combining marks, joiners, variation
// selectors, skin tones, tags (Unicode Standard, chapters 7, 22 and 23).
constexpr std::array<Range, 11> kBelongsToFront = {{{0x0300, 0x036F},
                                                    {0x0483, 0x0489},
                                                    {0x0591, 0x05BD},
                                                    {0x064B, 0x065F},
                                                    {0x1AB0, 0x1AFF},
                                                    {0x1DC0, 0x1DFF},
                                                    {0x200C, 0x200D},
                                                    {0x20D0, 0x20FF},
                                                    {0xFE00, 0xFE2F},
                                                    {0x1F3FB, 0x1F3FF},
                                                    {0xE0020, 0xE01EF}}};
constexpr std::uint32_t kJoiner = 0x200D;

std::uint32_t codePointAt(std::string_view text, std::size_t offset) {
  const std::size_t length = utf8::sequenceLength(text.substr(offset));
  if (length <= 1) return static_cast<unsigned char>(text[offset]);
  std::uint32_t point = static_cast<unsigned char>(text[offset]) & (0xFFU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i)
    point = point << 6 | (static_cast<unsigned char>(text[offset + i]) & 0x3FU);
  return point;
}

bool belongsToFront(std::uint32_t point) {
  return std::any_of(kBelongsToFront.begin(), kBelongsToFront.end(), [point](const Range& range) {
    return point >= range.first && point <= range.last;
  });
}

std::size_t extensionOffset(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  const bool none = dot == std::string_view::npos || dot == 0;
  return none || name.size() - dot > kLongestExtension ? name.size() : dot;
}

}  // namespace

std::string_view cutName(std::string_view name, std::size_t limit) {
  if (name.size() <= limit) return name;
  // Where a character ends that the next one does not belong to.
  std::size_t end = 0;
  std::uint32_t before = 0;
  for (std::size_t offset = 0; offset <= limit;) {
    const std::uint32_t point = codePointAt(name, offset);
    if (!belongsToFront(point) && before != kJoiner) end = offset;
    before = point;
    offset += std::max<std::size_t>(1, utf8::sequenceLength(name.substr(offset)));
  }
  return name.substr(0, end);
}

std::string markedName(std::string_view name, std::string_view mark) {
  const std::size_t offset = extensionOffset(name);
  const std::string_view extension = name.substr(offset);
  const std::string_view whole = cutName(mark, names::kLongestName - extension.size());
  const std::size_t room = names::kLongestName - extension.size() - whole.size();
  std::string result(cutName(name.substr(0, offset), room));
  result += whole;
  result += extension;
  return result;
}

std::string cutMarkedName(std::string_view name, std::string_view more) {
  const std::size_t close = name.rfind(')');
  const std::size_t open = name.rfind(" (", close);
  const bool hasEnd =
      close != std::string_view::npos && name.size() - close - 1 <= kLongestExtension;
  if (!hasEnd || open == std::string_view::npos || open == 0) return markedName(name, more);
  std::string plain(name.substr(0, open));
  plain += name.substr(close + 1);
  std::string mark(name.substr(open, close + 1 - open));
  mark += more;
  return markedName(plain, mark);
}

}  // namespace tulo
