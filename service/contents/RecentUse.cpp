#include "service/contents/RecentUse.h"

namespace tulo {

void RecentUse::opened(NodeId node) {
  const MutexLock lock(mutex_);
  noted_[node] = secondsNow();
}

bool RecentUse::save() {
  std::unordered_map<NodeId, WallSeconds> noted;
  {
    const MutexLock lock(mutex_);
    noted.swap(noted_);
  }
  if (noted.empty()) return false;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    for (const auto& [node, when] : noted)
      writer.setLastUsed(node, when);
  });
  return true;
}

}  // namespace tulo
