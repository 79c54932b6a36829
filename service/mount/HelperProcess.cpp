#include "service/mount/HelperProcess.h"

#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace tulo {

namespace {

constexpr unsigned kFirstOwn = STDERR_FILENO + 1;

// The service blocks the signals that end it in all of its threads; a helper ends by them.
void takeSignals() {
  sigset_t none = {};
  ::sigemptyset(&none);
  ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

HelperProcess::HelperProcess(const std::function<int()>& work) {
  process_ = ::fork();
  if (process_ == 0) {
    ::close_range(kFirstOwn, ~0U, 0);
    takeSignals();
    ::_exit(work());
  }
  if (process_ > 0) {
    handle_.reset(static_cast<int>(::syscall(SYS_pidfd_open, process_, 0)));
  }
}

HelperProcess::~HelperProcess() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  // It may be beyond a kill for as long as the mount does not answer.
  ::waitpid(process_, nullptr, WNOHANG);
}

std::optional<int> HelperProcess::wait(milliseconds patience) {
  if (process_ <= 0) return std::nullopt;
  pollfd ended = {handle_.get(), POLLIN, 0};
  const auto end = std::chrono::steady_clock::now() + patience;
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
    const int result = ::poll(&ended, 1, static_cast<int>(std::max(left, milliseconds(0)).count()));
    if (result == 0) return std::nullopt;
    if (result > 0) break;
    if (errno != EINTR) return std::nullopt;
  }
  int status = 0;
  if (::waitpid(process_, &status, 0) != process_) return std::nullopt;
  process_ = -1;
  return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

}  // namespace tulo
