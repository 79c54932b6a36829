#include "service/edits/WritableFiles.h"

#include <utility>

namespace tulo {

WritableFiles::Hold::Hold(WritableFiles& files, NodeId node) : files_(files), node_(node) {
  const MutexLock lock(files_.mutex_);
  Slot& slot = files_.slot(node);
  file_ = slot.file;
  ++slot.holders;
}

WritableFiles::Hold::~Hold() {
  const MutexLock lock(files_.mutex_);
  --files_.slot(node_).holders;
  files_.eraseUnused(node_);
}

std::shared_ptr<WritableFile> WritableFiles::find(NodeId node) const {
  const MutexLock lock(mutex_);
  const auto found = slots_.find(node);
  return found == slots_.end() ? nullptr : found->second.file;
}

std::shared_ptr<WritableFile> WritableFiles::get(NodeId node) {
  const MutexLock lock(mutex_);
  return slot(node).file;
}

void WritableFiles::add(NodeId node, std::shared_ptr<WritableFile> file) {
  const MutexLock lock(mutex_);
  slots_[node].file = std::move(file);
}

void WritableFiles::released(NodeId node) {
  const MutexLock lock(mutex_);
  eraseUnused(node);
}

WritableFiles::Slot& WritableFiles::slot(NodeId node) {
  Slot& slot = slots_[node];
  if (!slot.file) slot.file = std::make_shared<WritableFile>(parts_, node);
  return slot;
}

void WritableFiles::eraseUnused(NodeId node) {
  const auto found = slots_.find(node);
  if (found == slots_.end() || parts_.openFiles.isOpen(node) || found->second.holders > 0) return;
  // What is not in its row yet is still to be shown.
  if (!found->second.file->isChanged()) slots_.erase(found);
}

}  // namespace tulo
