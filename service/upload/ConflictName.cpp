#include "service/upload/ConflictName.h"

#include <array>
#include <ctime>

#include "service/base/MarkedName.h"

namespace tulo {

namespace {

// A name of a machine may have as many bytes as that of a file.
constexpr std::size_t kLongestMachine = 64;

}  // namespace

std::string conflictedName(const std::string& name, const std::string& machine, WallSeconds when,
                           unsigned attempt) {
  const std::time_t time = std::chrono::system_clock::to_time_t(when);
  std::tm parts = {};
  ::localtime_r(&time, &parts);
  std::array<char, 16> date{};
  std::strftime(date.data(), date.size(), "%Y-%m-%d", &parts);
  std::string mark = " (conflicted copy of ";
  mark += cutName(machine, kLongestMachine);
  mark += std::string(", ") + date.data();
  if (attempt > 1) mark += ", " + std::to_string(attempt);
  mark += ")";
  return markedName(name, mark);
}

}  // namespace tulo
