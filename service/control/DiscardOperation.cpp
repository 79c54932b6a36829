#include <cerrno>
#include <cstring>

#include "service/control/Operations.h"
#include "service/control/Scope.h"
#include "service/edits/Pending.h"

namespace tulo::control {

namespace {

const char* whyNot(int error) {
  switch (error) {
    case EBUSY:
      return "in use: being sent, or open in a program";
    case ENOTEMPTY:
      return "something is in it that the host does not have; move or delete that first";
    case EEXIST:
      return "its former name is taken";
    case EINVAL:
      return "its former folder is inside it";
    case ESTALE:
      return "its former folder is gone";
    default:
      return std::strerror(error);
  }
}

// Asked before the change is gone. Empty when it is already.
std::string pathOfChange(Replica& replica, NodeId node) {
  return replica.read([&](ReplicaReader& reader) {
    const std::optional<Change> change = journal::find(reader, node);
    return change ? pending::describe(reader, *change).path : std::string();
  });
}

}  // namespace

DiscardReply discard(const ControlParts& parts, const ChangesRequest& request) {
  const Scope scope = scopeOf(parts, request);
  Failures failures = scope.unknown;
  std::int64_t dropped = 0;
  for (NodeId node : changedIn(parts, scope)) {
    const std::string path = pathOfChange(parts.replica, node);
    const int error = parts.uploader.discard(node);
    if (error == 0) {
      ++dropped;
    } else if (error != ENOENT) {  // else it went up meanwhile
      failures.push_back({path, whyNot(error)});
    }
  }
  return {Outcome::with(std::move(failures)), dropped};
}

}  // namespace tulo::control
