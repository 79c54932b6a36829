// A process that this one starts, and that does not outlive it.
//
// Threads: any thread may call terminate() at any time; the rest is one thread's.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/Mutex.h"

namespace tulo::cli::demo {

class ChildProcess {
 public:
  // Starts `program` with these arguments, its output appended to a file. It gets a process group
  // of its own, so that Ctrl-C reaches its owner alone. Throws std::system_error.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
               const std::filesystem::path& output);
  // Ends the process: asks it to, and kills it if it has not ended after ten seconds.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t id() const { return id_; }

  // Asks the process to end, if it still runs.
  void terminate();

  // The status that the process ended with (128 and the number of the signal that ended it), or
  // nothing if it still runs after `bound`.
  std::optional<int> waitForEnd(std::chrono::milliseconds bound);

 private:
  void signal(int number) TULO_EXCLUDES(mutex_);

  pid_t id_ = -1;
  Mutex mutex_;  // a process that has been waited for must not be signalled
  std::optional<int> status_ TULO_GUARDED_BY(mutex_);
};

// The path of this executable.
std::string ownExecutable();

}  // namespace tulo::cli::demo
