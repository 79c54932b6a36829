#include "tests/host/HostProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <system_error>

#include "platform/linux/FileDescriptor.h"
#include "tests/support/Eventually.h"
#include "tests/support/TemporaryDirectory.h"

extern char** environ;

namespace tulo::test {

namespace {

struct Pipe {
  FileDescriptor read;
  FileDescriptor write;
};

Pipe makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe2");
  }
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

pid_t spawn(std::vector<std::string> arguments, int output, int errors) {
  arguments.insert(arguments.begin(), TULO_EXECUTABLE);
  std::vector<char*> pointers;
  for (std::string& argument : arguments)
    pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
  if (errors >= 0) posix_spawn_file_actions_adddup2(&actions, errors, STDERR_FILENO);
  pid_t pid = -1;
  const int error =
      ::posix_spawn(&pid, TULO_EXECUTABLE, &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::system_error(error, std::generic_category(), TULO_EXECUTABLE);
  return pid;
}

int waitFor(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// The first line, or what came before the end.
std::string firstLine(int fd) {
  std::string line;
  char byte = 0;
  while (line.find('\n') == std::string::npos) {
    pollfd readable{fd, POLLIN, 0};
    const auto bound = std::chrono::milliseconds(patience);
    if (::poll(&readable, 1, static_cast<int>(bound.count())) <= 0) break;
    if (::read(fd, &byte, 1) != 1) break;
    line += byte;
  }
  return line;
}

}  // namespace

Ended runTulo(const std::vector<std::string>& arguments) {
  const TemporaryDirectory directory;
  const std::string outputPath = directory.file("output");
  const std::string errorsPath = directory.file("errors");
  constexpr int flags = O_WRONLY | O_CREAT | O_CLOEXEC;
  const FileDescriptor output(::open(outputPath.c_str(), flags, 0600));
  const FileDescriptor errors(::open(errorsPath.c_str(), flags, 0600));
  const int status = waitFor(spawn(arguments, output.get(), errors.get()));
  return {status, readFile(outputPath), readFile(errorsPath)};
}

HostProcess::HostProcess(const std::vector<std::string>& arguments) {
  std::vector<std::string> all{"host", "serve"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  Pipe output = makePipe();
  pid_ = spawn(all, output.write.get(), -1);
  output.write.reset();
  serving_ = firstLine(output.read.get()).rfind("serving ", 0) == 0;
}

HostProcess::~HostProcess() {
  end(SIGKILL);
}

int HostProcess::end(int signal) {
  if (pid_ < 0) return -1;
  ::kill(pid_, signal);
  const int status = waitFor(pid_);
  pid_ = -1;
  return status;
}

}  // namespace tulo::test
