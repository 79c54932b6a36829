#include "service/contents/FileOpener.h"

namespace tulo {

OpenAttempt FileOpener::attempt(NodeId id, Verification verification) {
  sync_.glanceAtSource();
  const SharedLock gate(openFiles_.gate());
  const auto row = replica_.read([&](ReplicaReader& reader) { return reader.openLookup(id); });
  if (row && isCurrent(row->parent)) verification = Verification::done;
  const OpenDecision decision = decideOpen(row, verification);
  if (decision.step != OpenStep::open) return {decision.step, {decision.error, nullptr}};
  use_.opened(id);
  return {decision.step, {0, handle(id, row->content, row->state, row->size)}};
}

bool FileOpener::isCurrent(NodeId folder) {
  return folder != kNoNode && sync_.freshness(folder, 0) == Freshness::current;
}

std::unique_ptr<OpenFile> FileOpener::openAsIs(NodeId id) {
  const auto node = replica_.read([&](ReplicaReader& reader) { return reader.node(id); });
  if (!node || node->kind != NodeKind::file) return nullptr;
  return handle(id, node->content, node->state, node->size);
}

std::unique_ptr<OpenFile> FileOpener::openNew(const Entry& entry) {
  return handle(entry.id, entry.content, entry.state, entry.size);
}

// The row of what was changed here follows its bytes.
std::unique_ptr<OpenFile> FileOpener::handle(NodeId node, ContentId content, ContentState state,
                                             std::int64_t size) {
  std::optional<std::int64_t> expected;
  if (state != ContentState::dirty) expected = size;
  return std::make_unique<OpenFile>(replica_, openFiles_, store_, node, content, expected);
}

}  // namespace tulo
