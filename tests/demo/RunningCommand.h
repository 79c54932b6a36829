// A command that runs beside the test, with its output collected.
//
// Threads: one test's thread.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace tulo::test {

class RunningCommand {
 public:
  // Starts it with these variables set beside the test's own.
  RunningCommand(const std::vector<std::string>& words,
                 const std::map<std::string, std::string>& environment);
  // Kills what still runs.
  ~RunningCommand();
  RunningCommand(const RunningCommand&) = delete;
  RunningCommand& operator=(const RunningCommand&) = delete;

  void signal(int number) const;

  // Reads output until it holds this text or ends; whether it does. The command cannot get further
  // ahead than 4 KiB of output, all that its pipe holds.
  bool readUntil(const std::string& text);
  // Reads the rest and waits for the end. Its status, 128 and the number for a signal.
  int finish();

  // What was read of standard output and standard error together.
  const std::string& output() const { return output_; }

 private:
  bool readMore(std::size_t most);

  pid_t id_ = -1;
  int pipe_ = -1;
  std::string output_;
};

}  // namespace tulo::test
