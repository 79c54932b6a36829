#include "platform/FileProvider.h"

#include "platform/linux/Mutex.h"
#include "platform/linux/SystemSide.h"

namespace tulo::platform {

namespace {

class PlainManager final : public NSFileProviderManager {};

// What the system side provides. Never destroyed: a worker may ask while the process ends.
struct Managers {
  Mutex mutex;
  ManagerSource source TULO_GUARDED_BY(mutex);
};

Managers& managers() {
  static Managers& instance = *new Managers;
  return instance;
}

}  // namespace

const NSFileProviderItemIdentifier& NSFileProviderRootContainerItemIdentifier() {
  static const auto& identifier =
      *new NSFileProviderItemIdentifier("NSFileProviderRootContainerItemIdentifier");
  return identifier;
}

const NSFileProviderItemIdentifier& NSFileProviderWorkingSetContainerItemIdentifier() {
  static const auto& identifier =
      *new NSFileProviderItemIdentifier("NSFileProviderWorkingSetContainerItemIdentifier");
  return identifier;
}

const NSFileProviderItemIdentifier& NSFileProviderTrashContainerItemIdentifier() {
  static const auto& identifier =
      *new NSFileProviderItemIdentifier("NSFileProviderTrashContainerItemIdentifier");
  return identifier;
}

std::shared_ptr<NSFileProviderManager> NSFileProviderManager::managerForDomain(
    const DomainPointer& domain) {
  ManagerSource source;
  {
    Managers& current = managers();
    const MutexLock lock(current.mutex);
    source = current.source;
  }
  // Asked without the lock: the source is the system side's own code and may set another one.
  if (source) return source(domain);
  return domain ? std::make_shared<PlainManager>() : nullptr;
}

void setManagerSource(ManagerSource source) {
  Managers& current = managers();
  const MutexLock lock(current.mutex);
  current.source.swap(source);
}

}  // namespace tulo::platform
