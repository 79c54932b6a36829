#include "service/listing/Anchor.h"

#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace tulo {

namespace {

class ChangeObserver final : public platform::NSFileProviderChangeObserver {
 public:
  void didUpdateItems(std::vector<platform::ItemPointer>) override {}
  void didDeleteItems(std::vector<platform::NSFileProviderItemIdentifier>) override {}
  void finishEnumeratingChanges(const platform::NSFileProviderSyncAnchor&, bool) override {}
  void finishEnumeratingWithError(const platform::NSError&) override {}
};

}  // namespace

Anchor::Anchor(ExtensionPointer extension) : extension_(std::move(extension)) {}

void Anchor::ask() {
  const auto enumerator =
      extension_->enumerator(platform::NSFileProviderRootContainerItemIdentifier(), {});
  const std::string before = last();
  if (!before.empty()) enumerator->enumerateChanges(std::make_shared<ChangeObserver>(), before);
  enumerator->currentSyncAnchor([this](std::optional<platform::NSFileProviderSyncAnchor> anchor) {
    const MutexLock lock(mutex_);
    last_ = anchor.value_or("");
  });
}

std::string Anchor::last() const {
  const MutexLock lock(mutex_);
  return last_;
}

}  // namespace tulo
