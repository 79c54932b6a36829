#include "service/mount/Handles.h"

#include <fcntl.h>

#include <utility>

namespace tulo {

Handles::Handles(const MountParts& parts, Passthrough& passthrough)
    : files_(parts.files), passthrough_(passthrough), waitsWhenClosing_(parts.awaited != nullptr) {}

int Handles::prepareToWrite(const fuse_file_info& flags, OpenFile& file) const {
  if ((flags.flags & O_ACCMODE) == O_RDONLY || !files_) return 0;
  const OpenedFile opened = files_->open(file.node());
  if (!opened.file) return opened.error;
  file.setWrites();
  return 0;
}

fuse_file_info Handles::give(fuse_req_t request, fuse_file_info info,
                             std::unique_ptr<OpenFile> file) {
  // One number stands for one version, so the pages are good as long as the number is; changes
  // are invalidated.
  info.keep_cache = 1;
  // Whether close(2) has something to wait for; otherwise the release does all.
  info.noflush = file->writes() && waitsWhenClosing_ ? 0 : 1;
  passthrough_.opened(request, *file, info);
  info.fh = reinterpret_cast<std::uint64_t>(file.get());
  const MutexLock lock(mutex_);
  given_[info.fh] = std::move(file);
  return info;
}

void Handles::drop(fuse_req_t request, const fuse_file_info& info) {
  MutexLock lock(mutex_);
  auto dropped = given_.extract(info.fh);
  lock.unlock();
  // With all others, if it is not there any more.
  if (dropped) finish(request, std::move(dropped.mapped()));
}

void Handles::dropAll() {
  MutexLock lock(mutex_);
  auto all = std::exchange(given_, {});
  lock.unlock();
  for (auto& [handle, file] : all)
    finish(nullptr, std::move(file));
}

void Handles::finish(fuse_req_t request, std::unique_ptr<OpenFile> file) {
  passthrough_.closed(request, file->node());
  if (files_ && file->writes()) files_->settleLater(file->node());
  close(std::move(file));
}

void Handles::close(std::unique_ptr<OpenFile> file) {
  const NodeId node = file->node();
  file.reset();
  if (files_) files_->released(node);
}

}  // namespace tulo
