#include "service/base/Names.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace tulo::names {

namespace {

constexpr std::size_t kLongestExtension = 16;

constexpr std::array<std::string_view, 5> kTokens = {"%2F", "%00", "%2E", "%25", "%~"};

bool tokenStartsAt(std::string_view text, std::size_t position) {
  for (std::string_view token : kTokens) {
    if (text.substr(position, token.size()) == token) return true;
  }
  return false;
}

// `reversibly`: a "%" that could begin an escape is one, too.
std::string escaped(std::string_view filename, bool reversibly = false) {
  if (filename.empty()) return "%~";
  if (filename == ".") return "%2E";
  if (filename == "..") return "%2E%2E";
  if (filename.find_first_of(std::string_view("/%\0", 3)) == std::string_view::npos) {
    return std::string(filename);
  }
  std::string result;
  result.reserve(filename.size());
  for (std::size_t i = 0; i < filename.size(); ++i) {
    const char c = filename[i];
    if (c == '/') {
      result += "%2F";
    } else if (c == '\0') {
      result += "%00";
    } else if (reversibly && c == '%' && tokenStartsAt(filename, i)) {
      result += "%25";
    } else {
      result += c;
    }
  }
  return result;
}

std::uint64_t hash(std::string_view text) {
  std::uint64_t value = 0xcbf29ce484222325ULL;
  for (char c : text) {
    value ^= static_cast<unsigned char>(c);
    value *= 0x100000001b3ULL;
  }
  // The last bytes of a plain FNV hash hardly reach the high bits.
  value ^= value >> 32;
  value *= 0xd6e8feb86659fd93ULL;
  return value ^ (value >> 32);
}

// At most `limit` bytes of the front, never half a UTF-8 sequence, never a cut token.
std::string_view cut(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  std::size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80U)
    --end;
  for (std::size_t back = 1; back <= 2 && back <= end; ++back) {
    if (text[end - back] == '%') return text.substr(0, end - back);
  }
  return text.substr(0, end);
}

std::string_view extensionOf(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  const std::string_view extension = name.substr(dot);
  return extension.size() <= kLongestExtension ? extension : std::string_view{};
}

std::string withMark(std::string_view spelling, std::string_view mark) {
  const std::string_view extension = extensionOf(spelling);
  const std::string_view stem = spelling.substr(0, spelling.size() - extension.size());
  std::string result(cut(stem, kLongestName - extension.size() - mark.size()));
  result += mark;
  result += extension;
  return result;
}

std::string digits(std::uint64_t value) {
  std::array<char, 20> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%016llx", static_cast<unsigned long long>(value));
  return buffer.data();
}

std::string atMostLongest(std::string spelling, std::string_view text) {
  if (spelling.size() <= kLongestName) return spelling;
  return withMark(spelling, "%~" + digits(hash(text)));
}

}  // namespace

std::string shown(std::string_view filename) {
  return atMostLongest(escaped(filename), filename);
}

std::string reversible(std::string_view text) {
  return atMostLongest(escaped(text, true), text);
}

std::string marked(std::string_view filename, std::string_view identifier, unsigned attempt) {
  std::string mark = "%~" + digits(hash(identifier) + attempt);
  return withMark(escaped(filename), mark);
}

std::optional<std::string> textBehind(std::string_view reversible) {
  if (reversible == "%~") return std::string();
  std::string result;
  result.reserve(reversible.size());
  for (std::size_t i = 0; i < reversible.size(); ++i) {
    const std::string_view token = reversible.substr(i, 3);
    if (token == "%2F") {
      result += '/';
    } else if (token == "%00") {
      result += '\0';
    } else if (token == "%2E") {
      result += '.';
    } else if (token == "%25") {
      result += '%';
    } else if (token.substr(0, 2) == "%~") {
      return std::nullopt;
    } else {
      result += reversible[i];
      continue;
    }
    i += 2;
  }
  return result;
}

}  // namespace tulo::names
