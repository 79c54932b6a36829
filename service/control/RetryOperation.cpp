#include "service/control/Operations.h"
#include "service/control/Scope.h"

namespace tulo::control {

RetryReply retry(const ControlParts& parts, const ChangesRequest& request) {
  const Scope scope = scopeOf(parts, request);
  if (scope.everything) {
    const std::int64_t refused = parts.uploader.statistics().counts.attention;
    parts.uploader.retry(true);
    return {Outcome::good(), refused};
  }
  const std::vector<NodeId> nodes = changedIn(parts, scope);
  parts.uploader.retry(nodes);
  return {Outcome::with(scope.unknown), static_cast<std::int64_t>(nodes.size())};
}

}  // namespace tulo::control
