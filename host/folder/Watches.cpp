#include "host/folder/Watches.h"

#include <sys/inotify.h>

#include <cerrno>
#include <cstdint>

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

constexpr std::uint32_t watchedEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                        IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB | IN_ONLYDIR |
                                        IN_EXCL_UNLINK;

}  // namespace

Watches::Watches() : inotify_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (!inotify_) {
    throw systemError(errno, "watching folders (see fs.inotify.max_user_instances)");
  }
}

int Watches::add(const std::string& ulid, int folder) {
  // The descriptor's name in /proc reaches the very folder that was opened, wherever it is by now.
  const std::string path = "/proc/self/fd/" + std::to_string(folder);
  const MutexLock lock(mutex_);
  const int watch = ::inotify_add_watch(inotify_.get(), path.c_str(), watchedEvents);
  if (watch < 0) return errno;
  // The folder may have had another identifier, and this identifier another folder.
  if (const auto other = ulidOfWatch_.find(watch); other != ulidOfWatch_.end()) {
    if (other->second == ulid) return 0;
    watchOfUlid_.erase(other->second);
  }
  end(ulid);
  ulidOfWatch_[watch] = ulid;
  watchOfUlid_[ulid] = watch;
  return 0;
}

void Watches::remove(const std::string& ulid) {
  const MutexLock lock(mutex_);
  end(ulid);
}

void Watches::end(const std::string& ulid) {
  const auto found = watchOfUlid_.find(ulid);
  if (found == watchOfUlid_.end()) return;
  // The folder may be gone, and its watch with it.
  static_cast<void>(::inotify_rm_watch(inotify_.get(), found->second));
  ulidOfWatch_.erase(found->second);
  watchOfUlid_.erase(found);
}

std::optional<std::string> Watches::ulidOf(int watch) {
  const MutexLock lock(mutex_);
  const auto found = ulidOfWatch_.find(watch);
  if (found == ulidOfWatch_.end()) return std::nullopt;
  return found->second;
}

void Watches::forget(int watch) {
  const MutexLock lock(mutex_);
  const auto found = ulidOfWatch_.find(watch);
  if (found == ulidOfWatch_.end()) return;
  watchOfUlid_.erase(found->second);
  ulidOfWatch_.erase(found);
}

}  // namespace tulo::host
