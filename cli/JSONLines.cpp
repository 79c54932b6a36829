#include "cli/JSONLines.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

namespace tulo::cli {

void JSONLines::print(const nlohmann::ordered_json& object) {
  const std::string line =
      object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
  const MutexLock lock(mutex_);
  const bool isWritten =
      std::fwrite(line.data(), 1, line.size(), stdout) == line.size() && std::fflush(stdout) == 0;
  isWhole_ = isWhole_ && isWritten;
}

bool JSONLines::isWhole() {
  const MutexLock lock(mutex_);
  return isWhole_;
}

}  // namespace tulo::cli
