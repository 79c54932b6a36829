#include "service/contents/OpenFile.h"

namespace tulo {

OpenFile::OpenFile(Replica& replica, OpenFiles& openFiles, const ContentStore& store, NodeId node,
                   ContentId content, std::optional<std::int64_t> size)
    : replica_(replica),
      openFiles_(openFiles),
      store_(store),
      node_(node),
      content_(content),
      size_(size) {
  openFiles_.opened(node_, content);
  changes_ = openFiles_.contentsChanges(node_);
}

OpenFile::~OpenFile() {
  if (writes_) openFiles_.closedForWriting(node_);
  openFiles_.closed(node_, content());
}

void OpenFile::setWrites() {
  if (!writes_) openFiles_.openedForWriting(node_);
  writes_ = true;
}

ContentId OpenFile::content() const {
  const MutexLock lock(mutex_);
  return content_;
}

bool OpenFile::isBehind(std::uint64_t changes) const {
  const MutexLock lock(mutex_);
  return changes != changes_;
}

void OpenFile::follow() {
  const std::uint64_t changes = openFiles_.contentsChanges(node_);
  if (!isBehind(changes)) return;
  const SharedLock gate(openFiles_.gate());
  const auto row = replica_.read([&](ReplicaReader& reader) { return reader.openLookup(node_); });
  const MutexLock lock(mutex_);
  changes_ = changes;
  // A number that was left behind has no row any more, and keeps what it has.
  if (!row) return;
  size_.reset();
  if (row->content == content_) return;
  openFiles_.exchanged(content_, row->content);
  content_ = row->content;
  descriptor_.reset();
}

bool OpenFile::endsBefore(std::int64_t offset) {
  follow();
  const MutexLock lock(mutex_);
  return content_ == kNoContent || (size_ && offset >= *size_);
}

std::shared_ptr<const FileDescriptor> OpenFile::descriptor() {
  follow();
  const MutexLock lock(mutex_);
  if (!descriptor_) {
    descriptor_ = std::make_shared<const FileDescriptor>(size_ ? store_.open(content_, *size_)
                                                               : store_.openAsIs(content_));
  }
  return descriptor_;
}

}  // namespace tulo
