// `tulo host serve` in a process of its own, which a test can end in any way.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tulo::test {

// What a command that has ended leaves behind.
struct Ended {
  // As the shell gives it: 128 and more for a signal.
  int status = -1;
  std::string output;
  std::string errors;
};

// Runs `tulo` with these arguments to its end.
Ended runTulo(const std::vector<std::string>& arguments);

class HostProcess {
 public:
  // Starts `tulo host serve` with these further arguments; returns when it serves or has ended.
  explicit HostProcess(const std::vector<std::string>& arguments);
  ~HostProcess();
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  bool isServing() const { return serving_; }
  // Sends a signal and waits for the end; the exit status as the shell gives it.
  int end(int signal);

 private:
  pid_t pid_ = -1;
  bool serving_ = false;
};

}  // namespace tulo::test
