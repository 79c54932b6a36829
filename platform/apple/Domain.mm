#include "platform/apple/Domain.h"

#include "platform/apple/AutoreleasePool.h"
#include "platform/apple/Retained.h"
#include "platform/apple/Values.h"

namespace tulo::apple {

namespace {

class SystemDomain final : public platform::NSFileProviderDomain {
 public:
  explicit SystemDomain(::NSFileProviderDomain *domain)
      : platform::NSFileProviderDomain(toString([domain identifier]),
                                       toString([domain displayName])),
        domain_(Retained<::NSFileProviderDomain *>::retaining(domain)) {}

  ::NSFileProviderDomain *object() const { return domain_.get(); }

 private:
  Retained<::NSFileProviderDomain *> domain_;
};

class SystemManager final : public platform::NSFileProviderManager {
 public:
  explicit SystemManager(::NSFileProviderManager *manager)
      : manager_(Retained<::NSFileProviderManager *>::retaining(manager)) {}

 private:
  Retained<::NSFileProviderManager *> manager_;
};

// The system's own object, or one like it for a domain that did not come from the system.
Retained<::NSFileProviderDomain *> systemDomain(const platform::NSFileProviderDomain &domain) {
  using Object = Retained<::NSFileProviderDomain *>;
  if (const auto *known = dynamic_cast<const SystemDomain *>(&domain)) {
    return Object::retaining(known->object());
  }
  return Object::adopting([[::NSFileProviderDomain alloc]
      initWithIdentifier:toNSString(domain.identifier())
             displayName:toNSString(domain.displayName())]);
}

std::shared_ptr<platform::NSFileProviderManager> managerFor(const platform::DomainPointer &domain) {
  ::NSFileProviderManager *manager =
      [::NSFileProviderManager managerForDomain:systemDomain(*domain).get()];
  return manager == nil ? nullptr : std::make_shared<SystemManager>(manager);
}

}  // namespace

platform::DomainPointer toDomain(NSFileProviderDomain *domain) {
  return std::make_shared<SystemDomain>(domain);
}

platform::NSFileProviderRequest toRequest(NSFileProviderRequest *request) {
  return {.isSystemRequest = static_cast<bool>([request isSystemRequest]),
          .isFileViewerRequest = static_cast<bool>([request isFileViewerRequest])};
}

}  // namespace tulo::apple

namespace tulo::platform {

std::shared_ptr<NSFileProviderManager> NSFileProviderManager::managerForDomain(
    const DomainPointer &domain) {
  const apple::AutoreleasePool pool;
  return apple::managerFor(domain);
}

const NSFileProviderItemIdentifier &NSFileProviderRootContainerItemIdentifier() {
  static const auto &identifier = *new NSFileProviderItemIdentifier(
      apple::toString(::NSFileProviderRootContainerItemIdentifier));
  return identifier;
}

const NSFileProviderItemIdentifier &NSFileProviderWorkingSetContainerItemIdentifier() {
  static const auto &identifier = *new NSFileProviderItemIdentifier(
      apple::toString(::NSFileProviderWorkingSetContainerItemIdentifier));
  return identifier;
}

const NSFileProviderItemIdentifier &NSFileProviderTrashContainerItemIdentifier() {
  static const auto &identifier = *new NSFileProviderItemIdentifier(
      apple::toString(::NSFileProviderTrashContainerItemIdentifier));
  return identifier;
}

}  // namespace tulo::platform
