// What may be done with a file that the provider's side names as contents that it hands over.
//
// In the container there is one place for such files, "fp-download": what lies in it belongs to
// whoever was told of it, and is moved or removed. Everything else in the container is somebody
// else's: the index, the socket, edits on their way to the host. A path that leads out of the
// container may be anybody's file, so nothing but its bytes is taken.
//
// Where a path leads counts, not how it is spelled; the file itself is never reached through a
// symbolic link.
//
// Threads: immutable after construction.
#pragma once

#include <string>
#include <utility>

#include "platform/linux/FileDescriptor.h"

namespace tulo {

class HandOver {
 public:
  explicit HandOver(std::string container) : container_(std::move(container)) {}

  // Whether the file may be moved away or removed; otherwise only its bytes may be taken. Throws
  // ContentError for what is in the container and not handed over.
  bool isGiven(const std::string& path) const;
  // Opens it for reading. Throws ContentError, also for what is no regular file.
  FileDescriptor open(const std::string& path) const;
  // Removes a file that was handed over and is of no use; leaves every other one alone.
  void discard(const std::string& path) const;

 private:
  enum class Lies { inPlace, inContainer, outside };
  Lies where(const std::string& path) const;

  std::string container_;
};

}  // namespace tulo
