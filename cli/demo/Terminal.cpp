#include "cli/demo/Terminal.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace tulo::cli::demo {
namespace {

const char* escapeOf(Terminal::Style style) {
  switch (style) {
    case Terminal::Style::strong:
      return "\033[1m";
    case Terminal::Style::faint:
      return "\033[2m";
    case Terminal::Style::folder:
      return "\033[1;34m";
    case Terminal::Style::marked:
      return "\033[33m";
    case Terminal::Style::good:
      return "\033[32m";
    case Terminal::Style::bad:
      return "\033[31m";
    case Terminal::Style::plain:
      break;
  }
  return "";
}

void write(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

// The length of the UTF-8 sequence that begins `text`, or 0 if none does.
std::size_t sequenceLength(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  if (length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0U) != 0x80U) return 0;
  }
  return length;
}

}  // namespace

Terminal::Terminal()
    : isTerminal_(isatty(STDOUT_FILENO) == 1),
      hasColors_(isTerminal_ && std::getenv("NO_COLOR") == nullptr) {}

void Terminal::heading(std::string_view text) {
  line();
  line(styled(Style::strong, std::to_string(++headings_) + ". " + std::string(text)));
}

void Terminal::line(std::string_view text) {
  if (hasTransient_) write("\r\033[K");
  hasTransient_ = false;
  write(text);
  write("\n");
  if (std::fflush(stdout) != 0) throw std::runtime_error("standard output could not be written");
}

void Terminal::fact(std::string_view label, std::string_view text) {
  line("   " + styled(Style::faint, padded(label, 11)) + std::string(text));
}

void Terminal::holds(std::string_view text) {
  line("   " + styled(Style::good, "✓") + " " + std::string(text));
}

void Terminal::transient(std::string_view text) {
  if (!isTerminal_) return;
  hasTransient_ = true;
  write("\r\033[K");
  write(text);
  std::fflush(stdout);
}

std::string Terminal::styled(Style style, std::string_view text) const {
  if (!hasColors_ || style == Style::plain) return std::string(text);
  return escapeOf(style) + std::string(text) + "\033[0m";
}

std::string countText(std::int64_t count, std::string_view noun) {
  std::string digits = std::to_string(count);
  for (auto at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3) {
    digits.insert(static_cast<std::size_t>(at), ",");
  }
  return digits + " " + std::string(noun) + (count == 1 ? "" : "s");
}

std::string printable(std::string_view name) {
  std::string result;
  while (!name.empty()) {
    const std::size_t length = sequenceLength(name);
    const auto lead = static_cast<unsigned char>(name.front());
    const bool isShown = length > 0 && lead >= 0x20 && lead != 0x7F;
    const std::size_t taken = length > 0 ? length : 1;
    result += isShown ? name.substr(0, taken) : "?";
    name.remove_prefix(taken);
  }
  return result;
}

std::size_t columns(std::string_view text) {
  std::size_t count = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
    // U+0300 to U+036F, accents that sit on the letter before them.
    const bool isAccent = byte == 0xCC || (byte == 0xCD && next < 0xB0);
    if ((byte & 0xC0U) != 0x80U && !isAccent) ++count;
  }
  return count;
}

std::string padded(std::string_view text, std::size_t width) {
  std::string result(text);
  const std::size_t taken = columns(text);
  result.append(taken < width ? width - taken : 1, ' ');
  return result;
}

}  // namespace tulo::cli::demo
