#include "host/folder/Watcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <utility>

#include "host/base/HostError.h"

namespace tulo::host {

namespace {

std::string watchLimit() {
  std::ifstream file("/proc/sys/fs/inotify/max_user_watches");
  std::string text;
  return std::getline(file, text) ? text : "unknown";
}

std::string refusal(int error, std::chrono::seconds interval) {
  if (error != ENOSPC) return "a folder cannot be watched: " + errorText(error);
  return "the system's limit of watched folders is reached (fs.inotify.max_user_watches = " +
         watchLimit() + "); changes are looked for every " + std::to_string(interval.count()) +
         " seconds instead";
}

}  // namespace

Watcher::Watcher(const HostLog& log) : log_(log), wake_(::eventfd(0, EFD_CLOEXEC)) {
  if (!wake_) throw systemError(errno, "watching folders");
}

Watcher::~Watcher() {
  stop();
}

void Watcher::watch(const std::string& ulid, int folder) {
  const int error = watches_.add(ulid, folder);
  if (error == 0) return;
  isLimited_ = true;
  if (!isLimitTold_.exchange(true))
    log_.error(refusal(error, std::chrono::duration_cast<std::chrono::seconds>(rescanInterval_)));
}

void Watcher::start(Callbacks callbacks, Followed first) {
  callbacks_ = std::move(callbacks);
  nextRescan_ = Clock::now() + rescanInterval_;
  plan(first, Clock::now());
  thread_ = std::thread([this] { run(); });
}

void Watcher::stop() {
  if (!thread_.joinable()) return;
  stopping_ = true;
  lookAgain();
  thread_.join();
}

void Watcher::lookAgain() {
  isAsked_ = true;
  const std::uint64_t one = 1;
  static_cast<void>(!::write(wake_.get(), &one, sizeof one));
}

void Watcher::run() {
  while (!stopping_) {
    std::array<pollfd, 2> waiting{{{wake_.get(), POLLIN, 0}, {watches_.descriptor(), POLLIN, 0}}};
    ::poll(waiting.data(), waiting.size(), static_cast<int>(waitTime().count()));
    std::uint64_t count = 0;
    if (waiting[0].revents != 0) static_cast<void>(!::read(wake_.get(), &count, sizeof count));
    if (waiting[1].revents != 0) readEvents();
    if (!stopping_) deliver();
  }
}

std::chrono::milliseconds Watcher::waitTime() const {
  const auto now = Clock::now();
  // Nothing is told before that is over.
  if (everything_.isWaiting(now)) return everything_.waitTime(rescanInterval_, now);
  return unread_.waitTime(gathering_.waitTime(rescanInterval_), now);
}

void Watcher::readEvents() {
  alignas(inotify_event) std::array<char, 65536> buffer;
  while (true) {
    const ssize_t size = ::read(watches_.descriptor(), buffer.data(), buffer.size());
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
  if ((mask & IN_MOVED_FROM) != 0) gathering_.beginMove(cookie, now);
  if ((mask & IN_MOVED_TO) != 0) gathering_.endMove(cookie);
  gathering_.notice(now);
  if ((mask & IN_Q_OVERFLOW) != 0) {
    gathering_.lose();
  } else if ((mask & IN_IGNORED) != 0) {
    watches_.forget(watch);
  } else if (auto ulid = watches_.ulidOf(watch); ulid && *name != '\0') {
    Change change{*std::move(ulid), name};
    if ((mask & IN_MODIFY) != 0) {
      gathering_.addWritten(std::move(change), now);
    } else {
      gathering_.add(std::move(change));
    }
  }
}

void Watcher::deliver() {
  const auto now = Clock::now();
  if (isAsked_.exchange(false)) gathering_.lose();
  if (everything_.isWaiting(now)) return;
  if (isLimited_ && now >= nextRescan_) gathering_.lose();
  if (const auto batch = gathering_.take(now)) {
    batch->lost ? tellLost() : tell(batch->changes);
  } else if (unread_.isDue(now)) {
    plan(callbacks_.unread(), now);
  }
}

void Watcher::tell(const std::set<Change>& changes) {
  const auto begun = Clock::now();
  const Followed outcome = callbacks_.changed(changes);
  // What could not be read before was not tried.
  if (outcome != Followed::partly || !unread_.isPending()) plan(outcome, begun);
}

void Watcher::tellLost() {
  const auto begun = Clock::now();
  // Each folder is watched anew while it is looked at.
  isLimited_ = false;
  const Followed outcome = callbacks_.lost();
  if (outcome != Followed::failed && !isLimited_ && isLimitTold_.exchange(false)) {
    log_.info("all folders are watched again");
  }
  nextRescan_ = Clock::now() + rescanInterval_;
  plan(outcome, begun);
}

void Watcher::plan(Followed outcome, Clock::time_point begun) {
  const auto now = Clock::now();
  if (outcome == Followed::failed) {
    gathering_.lose();
    everything_.failed(begun, now);
    return;
  }
  everything_.succeeded();
  if (outcome == Followed::partly) {
    unread_.failed(begun, now);
  } else {
    unread_.succeeded();
  }
}

}  // namespace tulo::host
