// The socket "fp.sock" in the container, on which connections are awaited.
//
// Threads: one thread at a time. Errors: StartError.
#pragma once

#include <optional>

#include "host/account/Container.h"
#include "host/base/HostLog.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class ListeningSocket {
 public:
  // Both must outlive the object.
  ListeningSocket(const Container& container, const HostLog& log);

  // Makes the socket, for its user alone, in place of one that a dead host has left.
  void open();
  // Takes its name away: who is connected stays so.
  void remove();
  void close() { listener_.reset(); }

  // Becomes readable when somebody connects.
  int descriptor() const { return listener_.get(); }
  // The next connection, non-blocking. It is invalid where there is none, or none of this user's;
  // nothing where the process has no more descriptors.
  std::optional<FileDescriptor> accept();

 private:
  void removeStale();
  bool isWelcome(int fd) const;

  const Container& container_;
  const HostLog& log_;
  FileDescriptor listener_;
};

}  // namespace tulo::host
