// The demo's account as an ordinary folder: the service as a process of its own, with a replica and
// a control socket of its own, so that an account that the user has mounted is left alone.
//
// Threads: one at a time, but for interrupt().
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "cli/demo/ChildProcess.h"
#include "cli/demo/TemporaryFolder.h"

namespace tulo::cli::demo {

class MountedAccount {
 public:
  // Whether this machine can mount at all.
  static bool isPossible();

  // Mounts, and returns once the folder answers. `whileWaiting` is called often and may throw.
  // Throws std::runtime_error when the service ends or does not come up within a minute.
  MountedAccount(const std::filesystem::path& container, const std::function<void()>& whileWaiting);

  const std::filesystem::path& folder() const { return folder_; }
  // What to put before a command that talks to this service.
  std::string environment() const;
  // Unmounts. Throws std::runtime_error when the service did not end well.
  void unmount();

  // Ends the service so that nothing waits for it. Any thread.
  void interrupt();

 private:
  std::string logTail() const;

  TemporaryFolder temporary_;
  std::filesystem::path folder_;
  std::filesystem::path log_;
  std::unique_ptr<ChildProcess> service_;
};

}  // namespace tulo::cli::demo
