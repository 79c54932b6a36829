#include "service/kernel/Acknowledged.h"

namespace tulo {

namespace {

// Worth looking through for what no listing needs any more.
constexpr std::size_t kMany = 1000;

}  // namespace

Acknowledged::Watch::Watch(Acknowledged& owner) : owner_(owner) {
  const MutexLock lock(owner_.mutex_);
  begun_ = owner_.now_;
  owner_.watches_.insert(begun_);
}

Acknowledged::Watch::~Watch() {
  const MutexLock lock(owner_.mutex_);
  owner_.watches_.erase(owner_.watches_.find(begun_));
  if (owner_.watches_.empty()) {
    owner_.times_.clear();
  } else if (owner_.times_.size() > kMany) {
    const std::uint64_t oldest = *owner_.watches_.begin();
    std::erase_if(owner_.times_, [&](const auto& entry) { return entry.second <= oldest; });
  }
}

std::unordered_set<std::string> Acknowledged::Watch::newer() const {
  std::unordered_set<std::string> result;
  const MutexLock lock(owner_.mutex_);
  for (const auto& [identifier, time] : owner_.times_) {
    if (time > begun_) result.insert(identifier);
  }
  return result;
}

void Acknowledged::note(const std::string& identifier) {
  if (identifier.empty()) return;
  const MutexLock lock(mutex_);
  ++now_;
  if (!watches_.empty()) times_[identifier] = now_;
}

}  // namespace tulo
