#include "service/mount/MountTable.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace tulo {

namespace {

bool isOctal(const std::string& text, std::size_t at) {
  return at + 3 < text.size() && text[at] == '\\' &&
         text.find_first_not_of("01234567", at + 1) > at + 3;
}

// Blanks and backslashes of a path are written as a backslash and three octal digits.
std::string unescaped(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (isOctal(text, at)) {
      result += static_cast<char>(std::stoi(text.substr(at + 1, 3), nullptr, 8));
      at += 3;
    } else {
      result += text[at];
    }
  }
  return result;
}

std::optional<MountedFileSystem> parsed(const std::string& line) {
  std::istringstream fields(line);
  MountedFileSystem result;
  char colon = 0;
  std::string root;
  std::string field;
  fields >> result.number >> result.above >> result.major >> colon >> result.minor >> root >>
      result.point;
  // Options and any number of further fields, up to a dash.
  while (fields >> field && field != "-") {
  }
  if (!(fields >> result.type)) return std::nullopt;
  result.point = unescaped(result.point);
  return result;
}

}  // namespace

std::vector<MountedFileSystem> mountedFileSystems(std::istream& table) {
  std::vector<MountedFileSystem> result;
  std::string line;
  while (std::getline(table, line)) {
    if (auto mounted = parsed(line)) result.push_back(std::move(*mounted));
  }
  return result;
}

std::optional<MountedFileSystem> ourMountAt(const std::string& point, std::istream& table) {
  std::error_code ignored;
  const std::string wanted = std::filesystem::absolute(point, ignored).lexically_normal();
  std::optional<MountedFileSystem> result;
  for (MountedFileSystem& mounted : mountedFileSystems(table)) {
    if (mounted.isOurs() && mounted.point == wanted) result = std::move(mounted);
  }
  return result;
}

std::optional<MountedFileSystem> ourMountAt(const std::string& point) {
  std::ifstream table("/proc/self/mountinfo");
  return ourMountAt(point, table);
}

}  // namespace tulo
