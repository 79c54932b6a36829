#include "tests/demo/RunningCommand.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>

namespace tulo::test {
namespace {

constexpr int pipeSize = 4096;  // the least that there is

}  // namespace

RunningCommand::RunningCommand(const std::vector<std::string>& words,
                               const std::map<std::string, std::string>& environment) {
  std::vector<std::string> copies{"env"};
  for (const auto& [name, value] : environment)
    copies.push_back(name + "=" + value);
  copies.insert(copies.end(), words.begin(), words.end());
  std::vector<char*> arguments;
  arguments.reserve(copies.size() + 1);
  for (std::string& word : copies)
    arguments.push_back(word.data());
  arguments.push_back(nullptr);
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
  id_ = fork();
  if (id_ < 0) throw std::runtime_error("fork");
  if (id_ == 0) {
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    execvp("env", arguments.data());
    _exit(127);
  }
  close(ends[1]);
  pipe_ = ends[0];
  fcntl(pipe_, F_SETPIPE_SZ, pipeSize);
}

RunningCommand::~RunningCommand() {
  if (id_ > 0) {
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }
  close(pipe_);
}

void RunningCommand::signal(int number) const {
  kill(id_, number);
}

bool RunningCommand::readMore(std::size_t most) {
  std::array<char, 4096> buffer{};
  const ssize_t count = read(pipe_, buffer.data(), std::min(most, buffer.size()));
  if (count <= 0) return false;
  output_.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

bool RunningCommand::readUntil(const std::string& text) {
  while (output_.find(text) == std::string::npos) {
    if (!readMore(1)) return false;
  }
  return true;
}

int RunningCommand::finish() {
  while (readMore(SIZE_MAX)) {
  }
  int status = 0;
  waitpid(id_, &status, 0);
  id_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace tulo::test
