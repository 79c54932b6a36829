// Well-formed UTF-8: which bytes are, and the code points in them.
//
// Threads: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tulo::platform::utf8 {

// The length of the well-formed sequence that the text begins with; 0 when its first byte begins
// none (a stray continuation byte, an overlong form, a surrogate, a truncated sequence).
inline std::size_t sequenceLength(std::string_view text) {
  const auto byte = [text](std::size_t index) -> unsigned {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
  };
  const auto continues = [&byte](std::size_t index) { return (byte(index) & 0xC0U) == 0x80U; };
  const unsigned first = byte(0);
  const unsigned second = byte(1);
  if (text.empty()) return 0;
  if (first < 0x80) return 1;
  if (first < 0xC2 || !continues(1)) return 0;
  if (first < 0xE0) return 2;
  if (first < 0xF0) {
    if (first == 0xE0 && second < 0xA0) return 0;
    if (first == 0xED && second > 0x9F) return 0;
    return continues(2) ? 3 : 0;
  }
  if (first > 0xF4 || (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F))
    return 0;
  return continues(2) && continues(3) ? 4 : 0;
}

// The number of bytes at the front of the text that are well-formed, bounded by what 32-bit
// lengths hold.
inline std::size_t validLength(std::string_view text) {
  constexpr std::size_t bound = 0x4000'0000;
  std::size_t length = 0;
  while (length < text.size() && length < bound) {
    const std::size_t sequence = sequenceLength(text.substr(length));
    if (sequence == 0) break;
    length += sequence;
  }
  return length;
}

inline bool isValid(std::string_view text) {
  return validLength(text) == text.size();
}

// The code point of the well-formed sequence at the front, or nothing.
inline std::optional<char32_t> firstCodePoint(std::string_view text) {
  const std::size_t length = sequenceLength(text);
  if (length == 0) return std::nullopt;
  const auto lead = static_cast<unsigned char>(text[0]);
  if (length == 1) return lead;
  char32_t codePoint = lead & (0x7FU >> length);
  for (std::size_t index = 1; index < length; ++index) {
    codePoint = (codePoint << 6U) | (static_cast<unsigned char>(text[index]) & 0x3FU);
  }
  return codePoint;
}

// The length of the well-formed sequence that the text ends with; 0 when it ends with none.
inline std::size_t lastSequenceLength(std::string_view text) {
  for (std::size_t length = 1; length <= 4 && length <= text.size(); ++length) {
    if (sequenceLength(text.substr(text.size() - length)) == length) return length;
  }
  return 0;
}

// The code point of the well-formed sequence that the text ends with, or nothing.
inline std::optional<char32_t> lastCodePoint(std::string_view text) {
  return firstCodePoint(text.substr(text.size() - lastSequenceLength(text)));
}

}  // namespace tulo::platform::utf8
