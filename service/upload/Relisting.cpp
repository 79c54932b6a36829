#include "service/upload/Relisting.h"

namespace tulo {

void Relisting::want(NodeId folder) {
  if (folder == kNoNode) return;
  const MutexLock lock(mutex_);
  wanted_.push_back(folder);
}

void Relisting::listWanted() {
  std::vector<NodeId> folders;
  {
    const MutexLock lock(mutex_);
    folders.swap(wanted_);
  }
  for (NodeId folder : folders) {
    if (list_) list_(folder);
  }
}

}  // namespace tulo
