#include "cli/demo/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <thread>

namespace tulo::cli::demo {
namespace {

constexpr std::chrono::seconds patience{10};
constexpr int cannotExecute = 127;

// What runs between fork and exec: only calls that are safe there.
[[noreturn]] void becomeProgram(char* const* arguments, const char* output, pid_t parent) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(cannotExecute);  // it ended before the line above
  const int input = open("/dev/null", O_RDONLY);
  const int log = open(output, O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (input < 0 || log < 0) _exit(cannotExecute);
  dup2(input, STDIN_FILENO);
  dup2(log, STDOUT_FILENO);
  dup2(log, STDERR_FILENO);
  execv(arguments[0], arguments);
  _exit(cannotExecute);
}

int statusOf(int waited) {
  return WIFEXITED(waited) ? WEXITSTATUS(waited) : 128 + WTERMSIG(waited);
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const std::filesystem::path& output) {
  std::vector<std::string> words{program};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (std::string& word : words)
    pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const pid_t parent = getpid();
  id_ = fork();
  if (id_ < 0) throw std::system_error(errno, std::generic_category(), "cannot start " + program);
  if (id_ == 0) becomeProgram(pointers.data(), output.c_str(), parent);
}

ChildProcess::~ChildProcess() {
  terminate();
  if (waitForEnd(patience)) return;
  signal(SIGKILL);
  while (!waitForEnd(patience)) {
  }
}

void ChildProcess::signal(int number) {
  const MutexLock lock(mutex_);
  if (!status_) kill(id_, number);
}

void ChildProcess::terminate() {
  signal(SIGTERM);
}

std::optional<int> ChildProcess::waitForEnd(std::chrono::milliseconds bound) {
  const auto end = std::chrono::steady_clock::now() + bound;
  for (;;) {
    {
      const MutexLock lock(mutex_);
      int waited = 0;
      if (!status_ && waitpid(id_, &waited, WNOHANG) == id_) status_ = statusOf(waited);
      if (status_) return status_;
    }
    if (std::chrono::steady_clock::now() >= end) return std::nullopt;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

std::string ownExecutable() {
  return std::filesystem::read_symlink("/proc/self/exe");
}

}  // namespace tulo::cli::demo
