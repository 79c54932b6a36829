// One download on its way. Private to Contents.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "service/contents/Contents.h"

namespace tulo {

// Threads: `waiters`, `active` and `ahead` belong to Contents' mutex; the rest to whichever step
// the download is in, one at a time.
struct Contents::Fetch {
  NodeId node = kNoNode;
  bool ahead = false;
  bool active = false;
  WallSeconds startedAt{};
  std::vector<FetchCompletion> waiters;

  NodeId folder = kNoNode;
  std::string identifier;
  std::string version;
  std::int64_t size = 0;
  std::int64_t reserved = 0;
  unsigned attempts = 0;
  std::string path;
};

}  // namespace tulo
