#include "service/mount/Mount.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/mount/Handlers.h"
#include "service/mount/KernelCaches.h"
#include "service/mount/KernelRequests.h"
#include "service/mount/Operations.h"
#include "service/mount/RequestLoop.h"

namespace tulo {

namespace {

constexpr milliseconds kRhythm{1};

struct SessionDeleter {
  void operator()(fuse_session* session) const { fuse_session_destroy(session); }
};

using SessionPointer = std::unique_ptr<fuse_session, SessionDeleter>;

SessionPointer newSession(const MountOptions& options, Handlers& handlers) {
  std::string program = "tulo";
  std::string flag = "-o";
  std::string text = optionText(options);
  std::string debug = "-d";
  std::vector<char*> words = {program.data(), flag.data(), text.data()};
  if (options.debug) words.push_back(debug.data());
  fuse_args arguments = FUSE_ARGS_INIT(static_cast<int>(words.size()), words.data());
  SessionPointer session(
      fuse_session_new(&arguments, &operations(), sizeof(fuse_lowlevel_ops), &handlers));
  fuse_opt_free_args(&arguments);
  if (!session) throw MountError("cannot start a FUSE session");
  return session;
}

// As the system's table of mounts has it.
std::string resolved(const std::string& path) {
  std::error_code error;
  const std::filesystem::path result = std::filesystem::canonical(path, error);
  return error ? path : result.string();
}

// Lets go of the connection, and leaves in its place what tells libfuse that it has ended.
bool endConnection(int connection) {
  std::array<int, 2> ends = {};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  // Nobody reads from the other one any more, which polling calls an error.
  FileDescriptor(ends[0]).reset();
  const FileDescriptor ended(ends[1]);
  return ::dup3(ended.get(), connection, O_CLOEXEC) == connection;
}

}  // namespace

struct Mount::Session {
  Session(const MountOptions& options, const MountParts& parts)
      : point(resolved(options.mountPoint)),
        handlers(parts, ::getuid(), ::getgid()),
        fuse(newSession(options, handlers)),
        caches(fuse.get()) {
    if (fuse_session_mount(fuse.get(), point.path().c_str()) != 0) {
      throw MountError("cannot mount at " + point.path() +
                       " (is /dev/fuse there, and may this user use it?)");
    }
    mounted = point.mounted();
    const RequestLoop::Options loopOptions = RequestLoop::usualOptions();
    requests.emplace(fuse.get(), loopOptions.threads);
    loop.emplace(*requests, loopOptions);
  }

  ~Session() {
    handlers.stop();
    // By its path, unless the connection has ended: it only gives back what the session has then.
    if (isStillThere() || endConnection(fuse_session_fd(fuse.get()))) {
      fuse_session_unmount(fuse.get());
    }
  }

  // It may be gone from there, and another one in its place.
  bool isStillThere() const {
    const auto there = point.mounted();
    return there && mounted && there->minor == mounted->minor;
  }

  const MountPoint point;
  std::optional<MountedFileSystem> mounted;
  Handlers handlers;
  SessionPointer fuse;
  KernelCaches caches;
  std::optional<KernelRequests> requests;
  std::optional<RequestLoop> loop;
};

Mount::Mount(const MountOptions& options, const MountParts& parts) {
  const MountPoint point(options.mountPoint);
  point.clearStale();
  point.check();
  session_ = std::make_unique<Session>(options, parts);
}

Mount::~Mount() = default;

void Mount::run() {
  session_->loop->run();
  session_->handlers.handles.dropAll();
}

void Mount::stop() {
  session_->loop->stop();
}

void Mount::abort() {
  if (session_->mounted) session_->point.abortConnection(*session_->mounted);
}

const MountPoint& Mount::point() const {
  return session_->point;
}

bool Mount::writeBack(milliseconds patience) const {
  const auto end = std::chrono::steady_clock::now() + patience;
  if (!session_->point.writeBack(patience)) return false;
  // The kernel has handed it over then, but need not have waited until it was taken.
  const auto left = end - std::chrono::steady_clock::now();
  return awaitIdle(std::chrono::duration_cast<milliseconds>(left));
}

bool Mount::isInItsPlace() const {
  return session_->isStillThere();
}

bool Mount::awaitIdle(milliseconds patience) const {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!session_->requests->isIdle()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(kRhythm);
  }
  return true;
}

std::vector<MountUser> Mount::users() const {
  return session_->mounted ? usersOf(*session_->mounted) : std::vector<MountUser>();
}

InvalidationSink& Mount::caches() {
  return session_->caches;
}

}  // namespace tulo
