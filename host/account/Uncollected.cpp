#include "host/account/Uncollected.h"

#include "host/base/EntryStat.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"

namespace tulo::host {

std::vector<std::string> removeUncollected(int folder, std::chrono::seconds age,
                                           std::chrono::system_clock::time_point now,
                                           const std::function<bool(const std::string&)>& isInUse,
                                           const HostLog& log) {
  std::vector<std::string> names;
  forEachEntry(folder, [&](const std::string& name) {
    const auto stat = statEntry(folder, name);
    if (stat && stat->changed <= now - age && !isInUse(name)) names.push_back(name);
  });
  std::erase_if(names, [&](const std::string& name) {
    try {
      removeTree(folder, name);
      return false;
    } catch (const OperationError& error) {
      log.error("cannot sweep " + inQuotes(name) + ": " + error.what());
      return true;
    }
  });
  return names;
}

}  // namespace tulo::host
