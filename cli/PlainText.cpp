#include "cli/PlainText.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string_view>

namespace tulo::cli {

using nlohmann::json;

std::string printable(const json& value) {
  std::string text = value.is_string() ? value.get<std::string>() : value.dump();
  std::replace_if(
      text.begin(), text.end(),
      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }, '?');
  return text;
}

std::string reasonOf(const json& change) {
  const std::string error = change.value("error", "");
  return printable(error.substr(0, error.find("; ")));
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

void printFailures(const json& answer) {
  for (const json& failure : answer.value("failures", json::array())) {
    const json what = failure.contains("path") ? failure["path"] : failure.value("node", json());
    std::fprintf(stderr, "tulo: %s: %s\n", printable(what).c_str(),
                 printable(failure.value("error", json(""))).c_str());
  }
  if (answer.contains("error")) {
    std::fprintf(stderr, "tulo: %s\n", printable(answer["error"]).c_str());
  }
}

}  // namespace tulo::cli
