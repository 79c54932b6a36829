#include "service/upload/ActiveNodes.h"

namespace tulo {

bool ActiveNodes::take(NodeId node) {
  const MutexLock lock(mutex_);
  return nodes_.insert(node).second;
}

void ActiveNodes::giveBack(NodeId node) {
  const MutexLock lock(mutex_);
  nodes_.erase(node);
}

bool ActiveNodes::contains(NodeId node) const {
  const MutexLock lock(mutex_);
  return nodes_.contains(node);
}

std::size_t ActiveNodes::size() const {
  const MutexLock lock(mutex_);
  return nodes_.size();
}

std::vector<NodeId> ActiveNodes::all() const {
  const MutexLock lock(mutex_);
  return {nodes_.begin(), nodes_.end()};
}

}  // namespace tulo
