#include "host/account/Sweep.h"

#include "host/base/Files.h"
#include "host/base/HostError.h"

namespace tulo::host {

std::vector<std::string> sweepFolder(int folder, std::chrono::seconds age,
                                     std::chrono::system_clock::time_point now,
                                     const std::function<bool(const std::string&)>& isInUse,
                                     const HostLog& log) {
  const auto limit = std::chrono::nanoseconds((now - age).time_since_epoch()).count();
  std::vector<std::string> names;
  forEachEntry(folder, [&](const std::string& name) {
    const auto stat = statEntry(folder, name);
    if (stat && stat->changedNs <= limit && !isInUse(name)) names.push_back(name);
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
