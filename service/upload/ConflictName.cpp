#include "service/upload/ConflictName.h"

#include <array>
#include <ctime>

namespace tulo {

std::string conflictedName(const std::string& name, const std::string& machine, WallSeconds when,
                           unsigned attempt) {
  const std::time_t time = std::chrono::system_clock::to_time_t(when);
  std::tm parts = {};
  ::localtime_r(&time, &parts);
  std::array<char, 16> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%d", &parts);
  std::string mark = " (conflicted copy of " + machine + ", " + date.data();
  if (attempt > 1) mark += ", " + std::to_string(attempt);
  mark += ")";
  const std::size_t dot = name.rfind('.');
  const std::size_t stem = dot == std::string::npos || dot == 0 ? name.size() : dot;
  return name.substr(0, stem) + mark + name.substr(stem);
}

}  // namespace tulo
