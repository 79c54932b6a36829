#include "platform/Bundle.h"

#include <map>
#include <utility>

#include "platform/Deployment.h"
#include "platform/linux/Mutex.h"
#include "platform/linux/SystemSide.h"

namespace tulo::platform {

namespace {

struct BundleInfo {
  Mutex mutex;
  std::optional<std::map<std::string, std::string>> values TULO_GUARDED_BY(mutex){
      {{"CFBundleShortVersionString", std::string(deployment::version)}}};
};

// Never destroyed: a worker may ask while the process ends.
BundleInfo& bundleInfo() {
  static BundleInfo& instance = *new BundleInfo;
  return instance;
}

}  // namespace

std::optional<std::string> mainBundleInfoString(std::string_view key) {
  BundleInfo& info = bundleInfo();
  const MutexLock lock(info.mutex);
  if (!info.values) return std::nullopt;
  const auto found = info.values->find(std::string(key));
  if (found == info.values->end()) return std::nullopt;
  return found->second;
}

void setMainBundleInfo(std::optional<std::map<std::string, std::string>> values) {
  BundleInfo& info = bundleInfo();
  const MutexLock lock(info.mutex);
  info.values = std::move(values);
}

}  // namespace tulo::platform
