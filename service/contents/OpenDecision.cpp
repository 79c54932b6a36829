#include "service/contents/OpenDecision.h"

#include <cerrno>

namespace tulo {

OpenDecision decideOpen(const std::optional<OpenLookup>& row, Verification verification) {
  if (!row) return {OpenStep::refuse, ESTALE};
  if (row->kind == NodeKind::folder) return {OpenStep::refuse, EISDIR};
  // Nothing that the host reports changes what was changed here, or what is not in the tree.
  const bool settled = verification == Verification::done || row->parent == kNoNode ||
                       row->state == ContentState::dirty;
  if (!settled && verification == Verification::none) return {OpenStep::verify};
  // In doubt it takes the way of a download, which finds out what is missing.
  if (!settled) return {OpenStep::fetch};
  if (row->state == ContentState::dataless && row->size > 0) return {OpenStep::fetch};
  return {OpenStep::open};
}

}  // namespace tulo
