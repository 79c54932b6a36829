#include "service/listing/LookUps.h"

#include <cerrno>
#include <utility>

namespace tulo {

namespace {

constexpr std::int64_t kLargeFolder = 256;

bool isSameFile(const platform::NSFileProviderItem& item, const Node& file,
                const std::string& folder) {
  const ItemRecord found = recordOf(item);
  return found.parentIdentifier == folder && found.filename == file.filename &&
         found.kind == file.kind && found.size == file.size &&
         found.contentVersion == file.contentVersion;
}

}  // namespace

LookUps::LookUps(Replica& replica, ExtensionPointer extension, Lister& lister)
    : replica_(replica), extension_(std::move(extension)), lister_(lister) {}

std::optional<std::string> LookUps::largeFolder(NodeId folder) {
  return replica_.read([&](ReplicaReader& reader) -> std::optional<std::string> {
    if (!reader.hasAtLeast(folder, kLargeFolder)) return std::nullopt;
    const std::optional<Node> node = reader.node(folder);
    if (!node || node->identifier.empty()) return std::nullopt;
    return node->identifier;
  });
}

void LookUps::verify(const Node& file, RefreshCompletion completion) {
  const std::optional<std::string> folder = largeFolder(file.parent);
  if (!folder || file.identifier.empty()) {
    return lister_.refresh(file.parent, std::move(completion));
  }
  if (!begin()) return completion(EINTR);
  extension_->item(file.identifier, {},
                   [this, file, folder = *folder, completion = std::move(completion)](
                       const platform::ItemPointer& item, const std::optional<platform::NSError>&) {
                     if (item && isSameFile(*item, file, folder)) {
                       completion(0);
                     } else {
                       lister_.refresh(file.parent, completion);
                     }
                     end();
                   });
}

bool LookUps::begin() {
  const MutexLock lock(mutex_);
  if (refusing_) return false;
  ++underWay_;
  ++count_;
  return true;
}

void LookUps::end() {
  const MutexLock lock(mutex_);
  --underWay_;
  changed_.notifyAll();
}

std::uint64_t LookUps::count() const {
  const MutexLock lock(mutex_);
  return count_;
}

void LookUps::refuse() {
  const MutexLock lock(mutex_);
  refusing_ = true;
}

void LookUps::awaitNone() {
  MutexLock lock(mutex_);
  while (underWay_ > 0)
    changed_.wait(lock);
}

}  // namespace tulo
