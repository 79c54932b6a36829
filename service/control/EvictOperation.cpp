#include <cerrno>
#include <cstring>

#include "service/contents/TreeWalk.h"
#include "service/control/Operations.h"
#include "service/control/Shown.h"

namespace tulo::control {

namespace {

const char* whyItStays(int error) {
  return error == EBUSY ? "open, pinned, or not sent yet" : std::strerror(error);
}

}  // namespace

FilesReply evict(const ControlParts& parts, const FilesRequest& request) {
  TreeWalk walk(parts.replica, parts.sync);
  Failures failures;
  std::size_t count = 0;
  for (NodeId node : request.nodes) {
    for (NodeId file : walk.knownFiles(node)) {
      const int error = parts.contents.evict(file);
      ++count;
      if (error == 0) continue;
      failures.push_back({pathOf(parts.replica, file), whyItStays(error)});
    }
  }
  return {Outcome::with(std::move(failures)), count};
}

}  // namespace tulo::control
