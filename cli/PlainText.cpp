#include "cli/PlainText.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string_view>
#include <variant>

namespace tulo::cli {

std::string printable(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, '?');
  return text;
}

std::string reasonOf(const control::PendingChange& change) {
  return printable(change.error.substr(0, change.error.find("; ")));
}

std::string counted(std::int64_t count, const std::string& noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

std::string shellWord(const std::string& text) {
  const bool plain = !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c >= 0x80 ||
           std::string_view("/._-+,:@%").find(static_cast<char>(c)) != std::string_view::npos;
  });
  if (plain) return text;
  std::string result = "'";
  for (char c : text)
    result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return result + '\'';
}

std::string nameOf(const control::Failure& failure) {
  const auto* path = std::get_if<std::string>(&failure.what);
  return path ? *path : std::to_string(std::get<NodeId>(failure.what).number());
}

void printFailures(const control::Outcome& outcome) {
  for (const control::Failure& failure : outcome.failures.value_or(control::Failures())) {
    std::fprintf(stderr, "tulo: %s: %s\n", printable(nameOf(failure)).c_str(),
                 printable(failure.error).c_str());
  }
  if (outcome.error) std::fprintf(stderr, "tulo: %s\n", printable(*outcome.error).c_str());
}

}  // namespace tulo::cli
