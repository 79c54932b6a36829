// The demo's account: a folder of files, the container that host and extension share, and the
// reference host as a process of its own that serves the one through the other.
//
// Threads: one at a time, but for interrupt().
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cli/demo/ChildProcess.h"
#include "cli/demo/TemporaryFolder.h"
#include "platform/linux/Mutex.h"

namespace tulo::cli::demo {

class ServedAccount {
 public:
  ServedAccount();

  const std::filesystem::path& folder() const { return folder_; }
  const std::filesystem::path& container() const { return container_; }
  // A place for files that are neither the account's nor the host's.
  const std::filesystem::path& desk() const { return desk_; }
  std::filesystem::path socket() const;

  // Starts the host and returns once it answers on its socket. `whileWaiting` is called often and
  // may throw. Throws std::runtime_error when the host ends or does not come up within a minute.
  void startHost(const std::function<void()>& whileWaiting);
  // Ends the host; one that did not end well is a std::runtime_error.
  void stopHost();
  pid_t hostProcess() const { return host_->id(); }
  // The command line by which the host was started.
  std::string hostCommandLine() const;

  // Runs one of the host's own commands ("lock") on this account. Throws std::runtime_error when
  // it fails.
  void hostCommand(const std::string& name, const std::vector<std::string>& arguments);

  // Ends the host so that nothing waits for it. Any thread.
  void interrupt();

 private:
  std::vector<std::string> hostArguments() const;
  std::string logTail() const;

  TemporaryFolder temporary_;
  std::filesystem::path folder_;
  std::filesystem::path container_;
  std::filesystem::path desk_;
  std::filesystem::path log_;
  Mutex mutex_;  // the pointer, against interrupt(); only startHost() sets it
  std::unique_ptr<ChildProcess> host_;
};

}  // namespace tulo::cli::demo
