// One download on its way.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "service/replica/Ids.h"

namespace tulo {

// Threads: belongs to whichever step the download is in, one at a time.
struct Download {
  explicit Download(NodeId wanted) : node(wanted) {}

  const NodeId node;

  // What was asked for.
  NodeId folder = kNoNode;
  std::string version;
  std::int64_t size = 0;

  std::int64_t reserved = 0;  // bytes of the cache's room
  // Since when there is no room for it, and nobody is on the way who might make some.
  std::optional<std::chrono::steady_clock::time_point> waitsSince;
  unsigned attempts = 0;  // that were in vain
  std::string path;       // of what the host handed over and nobody took yet
};

using DownloadPointer = std::shared_ptr<Download>;

}  // namespace tulo
