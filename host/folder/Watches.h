// Which folder each of the system's watches belongs to.
//
// Threads: any thread; requests add and remove watches while the watcher reads their events.
// Errors: OperationError for the constructor.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Mutex.h"

namespace tulo::host {

class Watches {
 public:
  // Throws where the system refuses another instance.
  Watches();

  // Its events come from here.
  int descriptor() const { return inotify_.get(); }

  // Watches a folder under its identifier, instead of the one that had it before. 0, or the error
  // number that says why it cannot be watched.
  int add(const std::string& ulid, int folder) TULO_EXCLUDES(mutex_);
  void remove(const std::string& ulid) TULO_EXCLUDES(mutex_);
  // The folder of a watch, nothing for one that was removed.
  std::optional<std::string> ulidOf(int watch) TULO_EXCLUDES(mutex_);
  // The system has removed the watch by itself.
  void forget(int watch) TULO_EXCLUDES(mutex_);

 private:
  void end(const std::string& ulid) TULO_REQUIRES(mutex_);

  FileDescriptor inotify_;
  Mutex mutex_;
  // Each the other's inverse: a watch has one folder, and a folder one watch.
  std::unordered_map<int, std::string> ulidOfWatch_ TULO_GUARDED_BY(mutex_);
  std::unordered_map<std::string, int> watchOfUlid_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo::host
