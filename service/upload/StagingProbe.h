// Whether contents can be handed to the host at the moment.
//
// The extension copies them into the container before it asks the host. When that fails it says no
// more than that the item cannot be synchronised, as when the host refuses it. Which of the two it
// was is found out here: by doing what it had to do.
//
// Threads: every member may be called on any thread; it waits for the disk.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace tulo {

class StagingProbe {
 public:
  // `container`: the directory that is shared with the host; empty when there is none to be probed.
  explicit StagingProbe(std::string container) : container_(std::move(container)) {}

  // 0 when the file can be read and a copy of it has room in the container; else the errno of what
  // is in the way.
  int errorOf(const std::string& contents) const;

 private:
  int errorOfRoom(std::int64_t size) const;

  const std::string container_;
};

}  // namespace tulo
