#include "service/desktop/ThumbnailBatch.h"

#include <utility>

namespace tulo {

void ThumbnailBatch::add(const platform::NSFileProviderItemIdentifier& identifier,
                         platform::Data image) {
  const MutexLock lock(mutex_);
  images_.emplace(identifier, std::move(image));
}

void ThumbnailBatch::end() {
  const MutexLock lock(mutex_);
  ended_ = true;
  changed_.notifyAll();
}

void ThumbnailBatch::setProgress(std::shared_ptr<platform::Progress> progress) {
  const MutexLock lock(mutex_);
  progress_ = std::move(progress);
  if (cancelled_ && progress_) progress_->cancel();
}

void ThumbnailBatch::cancel() {
  const MutexLock lock(mutex_);
  cancelled_ = true;
  if (progress_) progress_->cancel();
  changed_.notifyAll();
}

bool ThumbnailBatch::wait() {
  MutexLock lock(mutex_);
  while (!ended_ && !cancelled_)
    changed_.wait(lock);
  return !cancelled_;
}

ThumbnailBatch::Images ThumbnailBatch::takeImages() {
  const MutexLock lock(mutex_);
  return std::move(images_);
}

}  // namespace tulo
