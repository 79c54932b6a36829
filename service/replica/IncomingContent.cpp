#include "service/replica/IncomingContent.h"

#include "service/replica/ContentStore.h"

namespace tulo {

void IncomingContents::add(ContentId content) {
  const MutexLock lock(mutex_);
  contents_.insert(content);
}

void IncomingContents::remove(ContentId content) {
  const MutexLock lock(mutex_);
  contents_.erase(content);
}

bool IncomingContents::has(ContentId content) const {
  const MutexLock lock(mutex_);
  return contents_.contains(content);
}

IncomingContent::IncomingContent(ContentStore& store, ContentId content)
    : incoming_(store.incoming()), content_(content) {
  incoming_.add(content_);
}

IncomingContent::~IncomingContent() {
  incoming_.remove(content_);
}

}  // namespace tulo
