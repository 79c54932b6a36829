#include <cstring>

#include "service/control/Operations.h"

namespace tulo::control {

Outcome setPinned(const ControlParts& parts, const FilesRequest& request, bool pinned) {
  Failures failures;
  for (NodeId node : request.nodes) {
    const int error = parts.pins.setPinned(node, pinned);
    if (error != 0) failures.push_back({node, std::strerror(error)});
  }
  parts.poke();
  return Outcome::with(std::move(failures));
}

}  // namespace tulo::control
