// Contents on their way: reserved, and no node's yet.
//
// Threads: every member may be called on any thread.
#pragma once

#include <unordered_set>

#include "platform/linux/Mutex.h"
#include "service/replica/Ids.h"

namespace tulo {

// Which contents are on their way.
class IncomingContents {
 public:
  void add(ContentId content) TULO_EXCLUDES(mutex_);
  void remove(ContentId content) TULO_EXCLUDES(mutex_);
  bool has(ContentId content) const TULO_EXCLUDES(mutex_);

 private:
  mutable Mutex mutex_;  // a leaf
  std::unordered_set<ContentId> contents_ TULO_GUARDED_BY(mutex_);
};

class ContentStore;

// While this lives, the contents are not taken for left-overs. To be made in the transaction that
// reserves the number, and to be let go of after the one that gives the contents to their node.
class IncomingContent {
 public:
  IncomingContent(ContentStore& store, ContentId content);
  ~IncomingContent();
  IncomingContent(const IncomingContent&) = delete;
  IncomingContent& operator=(const IncomingContent&) = delete;

  ContentId number() const { return content_; }

 private:
  IncomingContents& incoming_;
  const ContentId content_;
};

}  // namespace tulo
