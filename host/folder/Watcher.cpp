#include "host/folder/Watcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

using std::chrono::milliseconds;

constexpr std::uint32_t watchedEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                        IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB | IN_ONLYDIR |
                                        IN_EXCL_UNLINK;

// A change is told when nothing has happened for the first time, or at the latest after the second:
// a program that makes a thousand files makes a few commits of the index, not a thousand.
constexpr milliseconds quietTime{40};
constexpr milliseconds longestWait{400};
// A file that stays open while it is written is looked at this often.
constexpr milliseconds writingInterval{1000};

std::string watchLimit() {
  std::ifstream file("/proc/sys/fs/inotify/max_user_watches");
  std::string text;
  return std::getline(file, text) ? text : "unknown";
}

}  // namespace

Watcher::Watcher(const HostLog& log)
    : log_(log), inotify_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (!inotify_) {
    throw systemError(errno, "watching folders (see fs.inotify.max_user_instances)");
  }
  wake_.reset(::eventfd(0, EFD_CLOEXEC));
  if (!wake_) throw systemError(errno, "watching folders");
}

Watcher::~Watcher() {
  stop();
}

void Watcher::watch(const std::string& ulid, int folder) {
  // The descriptor's name in /proc reaches the very folder that was opened, wherever it is by now.
  const std::string path = "/proc/self/fd/" + std::to_string(folder);
  const std::lock_guard lock(mutex_);
  const int watch = ::inotify_add_watch(inotify_.get(), path.c_str(), watchedEvents);
  if (watch < 0) {
    if (!limitReached_) {
      log_.error(errno == ENOSPC
                     ? "the system's limit of watched folders is reached "
                       "(fs.inotify.max_user_watches = " +
                           watchLimit() + "); changes are looked for every " +
                           std::to_string(rescanInterval_.count() / 1000) + " seconds instead"
                     : "a folder cannot be watched: " + errorText(errno));
    }
    limitReached_ = true;
    return;
  }
  const auto before = watchOfUlid_.find(ulid);
  if (before != watchOfUlid_.end() && before->second != watch) ulidOfWatch_.erase(before->second);
  ulidOfWatch_[watch] = ulid;
  watchOfUlid_[ulid] = watch;
}

void Watcher::forget(const std::string& ulid) {
  const std::lock_guard lock(mutex_);
  const auto found = watchOfUlid_.find(ulid);
  if (found == watchOfUlid_.end()) return;
  // The folder may be gone, and its watch with it.
  static_cast<void>(::inotify_rm_watch(inotify_.get(), found->second));
  ulidOfWatch_.erase(found->second);
  watchOfUlid_.erase(found);
}

void Watcher::start(Callbacks callbacks) {
  callbacks_ = std::move(callbacks);
  nextRescan_ = Clock::now() + rescanInterval_;
  thread_ = std::thread([this] { run(); });
}

void Watcher::stop() {
  if (!thread_.joinable()) return;
  const std::uint64_t one = 1;
  static_cast<void>(!::write(wake_.get(), &one, sizeof one));
  thread_.join();
}

void Watcher::run() {
  while (true) {
    std::array<pollfd, 2> waiting{{{wake_.get(), POLLIN, 0}, {inotify_.get(), POLLIN, 0}}};
    ::poll(waiting.data(), waiting.size(), waitTime());
    if (waiting[0].revents != 0) return;
    if (waiting[1].revents != 0) readEvents();
    deliver();
  }
}

int Watcher::waitTime() const {
  milliseconds wait = rescanInterval_;
  if (!changes_.empty() || lost_) wait = std::min(wait, quietTime);
  if (!beingWritten_.empty()) wait = std::min(wait, writingInterval / 4);
  return static_cast<int>(wait.count());
}

void Watcher::readEvents() {
  alignas(inotify_event) std::array<char, 65536> buffer;
  while (true) {
    const ssize_t size = ::read(inotify_.get(), buffer.data(), buffer.size());
    if (size <= 0) return;
    const char* at = buffer.data();
    const char* const end = at + size;
    while (at < end) {
      const auto* event = reinterpret_cast<const inotify_event*>(at);
      note(event->wd, event->mask, event->cookie, event->len > 0 ? event->name : "");
      at += sizeof(inotify_event) + event->len;
    }
  }
}

void Watcher::note(int watch, std::uint32_t mask, std::uint32_t cookie, const char* name) {
  const auto now = Clock::now();
  if ((mask & IN_MOVED_FROM) != 0) {
    openMove_ = cookie;
    openMoveSince_ = now;
  } else if ((mask & IN_MOVED_TO) != 0 && cookie == openMove_) {
    openMove_ = 0;
  }
  if (changes_.empty() && !lost_) firstChange_ = now;
  lastChange_ = now;
  if ((mask & IN_Q_OVERFLOW) != 0) {
    lost_ = true;
    return;
  }
  const std::lock_guard lock(mutex_);
  const auto found = ulidOfWatch_.find(watch);
  if (found == ulidOfWatch_.end()) return;
  if ((mask & IN_IGNORED) != 0) {
    watchOfUlid_.erase(found->second);
    ulidOfWatch_.erase(found);
  } else if (*name != '\0') {
    const Change change{found->second, name};
    if ((mask & IN_MODIFY) != 0) {
      beingWritten_.emplace(change, now + writingInterval);
    } else {
      changes_.insert(change);
    }
  }
}

bool Watcher::isQuiet(Clock::time_point now) const {
  // The other half of a move is just arriving; told apart they would be a removal and a new entry.
  if (openMove_ != 0 && now - openMoveSince_ < quietTime) return false;
  return now - lastChange_ >= quietTime || now - firstChange_ >= longestWait;
}

void Watcher::deliver() {
  const auto now = Clock::now();
  for (auto entry = beingWritten_.begin(); entry != beingWritten_.end();) {
    if (entry->second > now) {
      ++entry;
      continue;
    }
    changes_.insert(entry->first);
    entry = beingWritten_.erase(entry);
  }
  bool limited = false;
  {
    const std::lock_guard lock(mutex_);
    limited = limitReached_;
  }
  if (limited && now >= nextRescan_) lost_ = true;
  if ((changes_.empty() && !lost_) || !isQuiet(now)) return;
  const std::set<Change> changes = std::exchange(changes_, {});
  for (const Change& change : changes)
    beingWritten_.erase(change);
  if (std::exchange(lost_, false)) {
    // A look at everything takes the single changes along.
    nextRescan_ = now + rescanInterval_;
    callbacks_.lost();
  } else {
    callbacks_.changed(changes);
  }
}

}  // namespace tulo::host
