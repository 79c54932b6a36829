// The folder at the top of a served one in which the host prepares its writes, so that each becomes
// visible by one rename.
//
// Threads: immutable; any thread. Errors: OperationError.
#pragma once

#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class WorkFolder {
 public:
  static constexpr const char* name = ".tulo-host";

  // In the folder of the descriptor `root`, which stays the caller's.
  explicit WorkFolder(int root);

  // Made when it is missing.
  FileDescriptor open() const;
  bool isThere() const;
  // Removes it with all that a crash has left in it.
  void clear() const;

 private:
  FileDescriptor root_;
};

}  // namespace tulo::host
