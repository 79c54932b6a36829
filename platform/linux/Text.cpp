#include "platform/Text.h"

#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/normalizer2.h>
#include <unicode/ubrk.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

#include "platform/UTF8.h"

namespace tulo::platform::text {

namespace {

bool isAscii(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}

bool isAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return isAscii(c); });
}

void require(UErrorCode status, const char* operation) {
  if (U_FAILURE(status)) {
    throw std::runtime_error(std::string(operation) + " failed: " + u_errorName(status));
  }
}

icu::StringPiece piece(std::string_view run) {
  return {run.data(), static_cast<std::int32_t>(run.size())};
}

// Applies `transform` to each run of valid UTF-8 and carries the other bytes over unchanged.
template <typename Transform>
std::string transformed(std::string_view text, const Transform& transform) {
  std::string result;
  result.reserve(text.size());
  icu::StringByteSink<std::string> sink(&result);
  while (!text.empty()) {
    const std::size_t valid = utf8::validLength(text);
    if (valid > 0) {
      transform(piece(text.substr(0, valid)), sink);
      text.remove_prefix(valid);
    } else {
      result += text.front();
      text.remove_prefix(1);
    }
  }
  return result;
}

// The classes that join a neighbour which is itself a plain ASCII character other than a control
// or a line end: with such a neighbour no other rule of segmentation applies.
bool joinsWhatIsBefore(char32_t codePoint) {
  switch (u_getIntPropertyValue(static_cast<UChar32>(codePoint), UCHAR_GRAPHEME_CLUSTER_BREAK)) {
    case U_GCB_EXTEND:
    case U_GCB_ZWJ:
    case U_GCB_SPACING_MARK:
      return true;
    default:
      return false;
  }
}

bool joinsWhatIsBehind(char32_t codePoint) {
  return u_getIntPropertyValue(static_cast<UChar32>(codePoint), UCHAR_GRAPHEME_CLUSTER_BREAK) ==
         U_GCB_PREPEND;
}

bool isControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

// Whether a character ends after the ASCII byte before `offset`, with offset > 0.
bool endsAfterAscii(std::string_view text, std::size_t offset) {
  if (offset == text.size()) return true;
  const char before = text[offset - 1];
  if (isAscii(text[offset])) return !(before == '\r' && text[offset] == '\n');
  if (isControl(before)) return true;
  const auto next = utf8::firstCodePoint(text.substr(offset));
  return !next || !joinsWhatIsBefore(*next);
}

// Whether a character begins at `offset`, where an ASCII byte that is not a control stands.
bool beginsAtAscii(std::string_view text, std::size_t offset) {
  if (offset == 0 || isAscii(text[offset - 1])) return true;
  const auto previous = utf8::lastCodePoint(text.substr(0, offset));
  return !previous || !joinsWhatIsBehind(*previous);
}

struct CloseIterator {
  void operator()(UBreakIterator* iterator) const noexcept { ubrk_close(iterator); }
};
struct CloseText {
  void operator()(UText* text) const noexcept { utext_close(text); }
};

// Opening an iterator costs far more than using it, so each thread keeps its own.
UBreakIterator* characterIterator() {
  thread_local std::unique_ptr<UBreakIterator, CloseIterator> iterator;
  if (!iterator) {
    UErrorCode status = U_ZERO_ERROR;
    iterator.reset(ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status));
    require(status, "opening the character iterator");
  }
  return iterator.get();
}

// Appends the end of each character of a valid run that begins at `base`.
void appendCharacterEnds(std::string_view run, std::size_t base, std::vector<std::size_t>& ends) {
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<UText, CloseText> text(
      utext_openUTF8(nullptr, run.data(), static_cast<std::int64_t>(run.size()), &status));
  require(status, "opening the text");
  UBreakIterator* iterator = characterIterator();
  ubrk_setUText(iterator, text.get(), &status);
  require(status, "setting the text");
  for (auto end = ubrk_next(iterator); end != UBRK_DONE; end = ubrk_next(iterator)) {
    ends.push_back(base + static_cast<std::size_t>(end));
  }
}

std::vector<std::size_t> characterEnds(std::string_view text) {
  std::vector<std::size_t> ends;
  ends.reserve(text.size());
  for (std::size_t offset = 0; offset < text.size();) {
    const std::size_t valid = utf8::validLength(text.substr(offset));
    if (valid > 0) {
      appendCharacterEnds(text.substr(offset, valid), offset, ends);
    } else {
      ends.push_back(offset + 1);
    }
    offset += std::max<std::size_t>(valid, 1);
  }
  return ends;
}

std::string_view asciiSuffix(std::string_view text, std::size_t count) {
  std::size_t start = text.size();
  while (count-- > 0 && start > 0) {
    --start;
    if (text[start] == '\n' && start > 0 && text[start - 1] == '\r') --start;
  }
  return text.substr(start);
}

}  // namespace

std::string lowercased(std::string_view text) {
  if (isAscii(text)) {
    std::string result(text);
    for (char& c : result) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return result;
  }
  return transformed(text, [](icu::StringPiece run, icu::ByteSink& sink) {
    UErrorCode status = U_ZERO_ERROR;
    icu::CaseMap::utf8ToLower("", 0, run, sink, nullptr, status);
    require(status, "lowercasing");
  });
}

std::string precomposed(std::string_view text) {
  if (isAscii(text)) return std::string(text);
  UErrorCode opened = U_ZERO_ERROR;
  const icu::Normalizer2* composer = icu::Normalizer2::getNFCInstance(opened);
  require(opened, "opening the composition");
  return transformed(text, [composer](icu::StringPiece run, icu::ByteSink& sink) {
    UErrorCode status = U_ZERO_ERROR;
    composer->normalizeUTF8(0, run, sink, nullptr, status);
    require(status, "composing");
  });
}

std::optional<std::size_t> lengthOfPrefix(std::string_view text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return std::nullopt;
  if (!prefix.empty() && !endsAfterAscii(text, prefix.size())) return std::nullopt;
  return prefix.size();
}

std::optional<std::size_t> offsetOfLastDot(std::string_view text) {
  std::size_t dot = text.rfind('.');
  while (dot != std::string_view::npos) {
    if (beginsAtAscii(text, dot) && endsAfterAscii(text, dot + 1)) return dot;
    if (dot == 0) break;
    dot = text.rfind('.', dot - 1);
  }
  return std::nullopt;
}

std::string_view suffix(std::string_view text, std::size_t count) {
  if (count >= text.size()) return text;
  if (count == 0) return text.substr(text.size());
  if (isAscii(text)) return asciiSuffix(text, count);
  const std::vector<std::size_t> ends = characterEnds(text);
  if (count >= ends.size()) return text;
  return text.substr(ends[ends.size() - count - 1]);
}

// A component of several leading dots has its extension after the last of them: "..a" gives "a",
// since its first dot is not its only one.
std::string pathExtension(std::string_view path) {
  while (path.ends_with('/'))
    path.remove_suffix(1);
  const std::size_t slash = path.rfind('/');
  if (slash != std::string_view::npos) path.remove_prefix(slash + 1);
  const std::size_t dot = path.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return std::string(path.substr(dot + 1));
}

}  // namespace tulo::platform::text
