// Which programs may cause a download.
//
// Indexers and makers of thumbnails open every file that they find. Were that a reason to download,
// a look into a folder would fetch all of it. So programs on the list (ProgramList), and what they
// or their sandboxes and scripts start, get an error for a file that is not here.
//
// The list is the built-in one and then the lines of the user's file, which is read again when it
// has changed.
//
// Threads: every member may be called on any thread.
// Errors: none. What cannot be found out about a process speaks for it: refusing a file to a
// program that wants to read it would be worse than a download.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "platform/linux/Mutex.h"
#include "service/contents/ProgramList.h"

namespace tulo {

// What /proc tells of one process.
struct ProcessRecord {
  ProgramNames program;  // without the arguments
  pid_t parent = 0;
  std::string started;  // together with the number, tells processes apart
};

class DownloadPolicy {
 public:
  // `listPath`: the user's file; need not exist. Empty: none.
  explicit DownloadPolicy(std::string listPath, std::string procDirectory = "/proc");

  // $XDG_CONFIG_HOME/tulo/no-download; empty without that and without a home directory.
  static std::string userListPath();

  // Whether opening a file that is not here may fetch it for this process. The number may be that
  // of a thread; 0 stands for a caller that this process cannot see.
  bool mayDownload(pid_t pid) TULO_EXCLUDES(mutex_);

 private:
  struct Decision {
    std::string started;
    std::string executable;
    std::string command;
    bool may = true;
  };

  std::optional<ProcessRecord> process(pid_t pid) const;
  pid_t leader(pid_t thread) const;
  std::vector<std::string> arguments(pid_t pid) const;
  std::optional<bool> remembered(pid_t pid, const ProcessRecord& record) const
      TULO_REQUIRES(mutex_);
  bool decide(pid_t pid, ProcessRecord record) const TULO_REQUIRES(mutex_);
  void readListIfChanged() TULO_REQUIRES(mutex_);

  const std::string listPath_;
  const std::string proc_;

  // Held while /proc and the user's file are read: both are short and
  // local, and nothing is called that could come back here.
  Mutex mutex_;
  ProgramList list_ TULO_GUARDED_BY(mutex_);
  std::string listStamp_ TULO_GUARDED_BY(mutex_);
  std::unordered_map<pid_t, Decision> decisions_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
