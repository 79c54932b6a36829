#include "service/listing/SourceWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <ctime>

#include "service/base/Time.h"

namespace tulo {

using namespace std::chrono_literals;

namespace {

// A commit is published a moment after the write that the notification reports; the looks after a
// notification catch it. The last one is the rhythm when nothing happens.
constexpr std::array<milliseconds, 9> kLooks = {1ms,  2ms,   5ms,   10ms,  20ms,
                                                50ms, 100ms, 300ms, 1000ms};

constexpr nanoseconds kRecent = 50ms;

// The header of SQLite's shared-memory file: offsets of what identifies the last committed frame.
constexpr std::size_t kHeaderSize = 48;
constexpr std::size_t kInitialized = 12;
constexpr std::size_t kFrames = 16;
constexpr std::size_t kFramesEnd = 40;

void appendFile(std::string& text, const std::string& path) {
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0 || status.st_size == 0) {
    text += "-;";
    return;
  }
  text += std::to_string(status.st_dev) + ',' + std::to_string(status.st_ino) + ',' +
          std::to_string(status.st_size) + ',' + std::to_string(status.st_mtim.tv_sec) + ',' +
          std::to_string(status.st_mtim.tv_nsec) + ';';
}

void drain(int descriptor) {
  std::array<char, 16384> buffer;
  while (::read(descriptor, buffer.data(), buffer.size()) > 0) {
  }
}

}  // namespace

SourceWatch::SourceWatch(SourceFiles files)
    : files_(std::move(files)), wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

SourceWatch::~SourceWatch() {
  stop();
}

std::string SourceWatch::path(const char* suffix) const {
  return files_.directory + '/' + files_.database + suffix;
}

bool SourceWatch::present() const {
  if (files_.database.empty()) return true;
  struct stat status = {};
  return ::stat(path("").c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
}

std::string SourceWatch::headerFrames() {
  std::array<char, kHeaderSize> header;
  if (!published_ || ::pread(published_.get(), header.data(), header.size(), 0) !=
                         static_cast<ssize_t>(header.size())) {
    return {};
  }
  if (header[kInitialized] == 0) return {};
  return {header.data() + kFrames, kFramesEnd - kFrames};
}

// Closing a descriptor of a file ends all locks that the process has on it. The provider reads the
// same database under such locks, so one file is opened once and closed when another one has taken
// its place: nobody removes it while it is in use.
void SourceWatch::openPublished() {
  struct stat open = {};
  struct stat found = {};
  const std::string file = path("-shm");
  const bool present = ::stat(file.c_str(), &found) == 0;
  if (present && published_ && ::fstat(published_.get(), &open) == 0 &&
      open.st_dev == found.st_dev && open.st_ino == found.st_ino) {
    return;
  }
  published_ = FileDescriptor(present ? ::open(file.c_str(), O_RDONLY | O_CLOEXEC) : -1);
}

// Without a process that has the database open there is no such file, or one that is being
// rebuilt; the commits are then still those that were seen last.
std::string SourceWatch::committedFrames() {
  const MutexLock lock(mutex_);
  openPublished();
  std::string frames = headerFrames();
  if (!frames.empty()) lastFrames_ = std::move(frames);
  return lastFrames_;
}

bool SourceWatch::publishedSince() {
  const MutexLock lock(mutex_);
  const std::string frames = headerFrames();
  return !frames.empty() && frames != lastFrames_;
}

std::string SourceWatch::fingerprint() {
  if (files_.database.empty()) return {};
  std::string text;
  appendFile(text, path(""));
  appendFile(text, path("-wal"));
  appendFile(text, path("-journal"));
  return text + committedFrames();
}

bool SourceWatch::recentlyWritten() const {
  struct timespec now = {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  for (const char* suffix : {"", "-wal"}) {
    struct stat status = {};
    if (::stat(path(suffix).c_str(), &status) != 0) continue;
    const nanoseconds age = seconds(now.tv_sec - status.st_mtim.tv_sec) +
                            nanoseconds(now.tv_nsec - status.st_mtim.tv_nsec);
    // What was written while the clock was ahead is no more recent for that.
    if (age > -kRecent && age < kRecent) return true;
  }
  return false;
}

void SourceWatch::start(std::function<void()> changed) {
  if (files_.database.empty() || thread_.joinable()) return;
  thread_ = std::thread([this, changed = std::move(changed)] { run(changed); });
}

void SourceWatch::stop() {
  if (!thread_.joinable()) return;
  const std::uint64_t one = 1;
  if (::write(wake_.get(), &one, sizeof one) < 0) return;
  thread_.join();
}

void SourceWatch::run(const std::function<void()>& changed) {
  const FileDescriptor notifications(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  int watch = -1;
  std::size_t look = 0;
  for (;;) {
    // Added again each time: the directory may be new, or another one under the same name.
    watch = ::inotify_add_watch(notifications.get(), files_.directory.c_str(),
                                IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM);
    struct pollfd waits[] = {{wake_.get(), POLLIN, 0},
                             {watch >= 0 ? notifications.get() : -1, POLLIN, 0}};
    const int ready = ::poll(waits, 2, static_cast<int>(kLooks[look].count()));
    if (waits[0].revents != 0) return;
    if (ready > 0 && waits[1].revents != 0) {
      drain(notifications.get());
      look = 0;
    } else if (look + 1 < kLooks.size()) {
      ++look;
    }
    changed();
  }
}

}  // namespace tulo
