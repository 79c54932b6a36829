// One request for thumbnails that is under way, and what came of it so far.
//
// Threads: every member may be called on any thread.
// Lifetime: shared with the provider's callbacks, and outlives the batcher for those that come
// late.
#pragma once

#include <map>
#include <memory>

#include "platform/FileProvider.h"
#include "platform/linux/Mutex.h"

namespace tulo {

class ThumbnailBatch {
 public:
  using Images = std::map<platform::NSFileProviderItemIdentifier, platform::Data>;

  // What the provider's callbacks say.
  void add(const platform::NSFileProviderItemIdentifier& identifier, platform::Data image)
      TULO_EXCLUDES(mutex_);
  void end() TULO_EXCLUDES(mutex_);

  // The request's own; cancelled at once if the batch was before.
  void setProgress(std::shared_ptr<platform::Progress> progress) TULO_EXCLUDES(mutex_);
  void cancel() TULO_EXCLUDES(mutex_);

  // Until the batch is over. False if it was cancelled before its end.
  bool wait() TULO_EXCLUDES(mutex_);
  Images takeImages() TULO_EXCLUDES(mutex_);

 private:
  // A leaf but for the progress.
  Mutex mutex_;
  Condition changed_;
  Images images_ TULO_GUARDED_BY(mutex_);
  std::shared_ptr<platform::Progress> progress_ TULO_GUARDED_BY(mutex_);
  bool ended_ TULO_GUARDED_BY(mutex_) = false;
  bool cancelled_ TULO_GUARDED_BY(mutex_) = false;
};

}  // namespace tulo
