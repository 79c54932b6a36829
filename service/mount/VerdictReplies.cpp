#include "service/mount/VerdictReplies.h"

#include <optional>
#include <utility>

#include "service/replica/Journal.h"

namespace tulo {

VerdictReplies::VerdictReplies(const MountParts& parts, Interrupts& interrupts)
    : replica_(parts.replica),
      notifier_(parts.notifier),
      interrupts_(interrupts),
      awaited_(parts.awaited),
      patience_(parts.patience) {}

NodeId VerdictReplies::nodeNamed(NodeId folder, const std::string& name) {
  if (!awaited_) return kNoNode;
  const NameLookup found =
      replica_.read([&](ReplicaReader& reader) { return reader.lookup(folder, name); });
  return found.entry ? found.entry->id : kNoNode;
}

bool VerdictReplies::isUnsent(NodeId file) {
  if (!awaited_) return false;
  return replica_.read([&](ReplicaReader& reader) {
    const std::optional<Entry> entry = reader.entry(file);
    const std::optional<Change> change = journal::find(reader, file);
    return entry && entry->size > 0 && change && change->hasContents() &&
           !change->standing.isRefused();
  });
}

void VerdictReplies::reply(fuse_req_t request, const std::vector<NodeId>& nodes,
                           Invalidations names, std::function<void()> succeeded) {
  if (!awaited_) return succeeded();
  const Verdicts::Ticket ticket = awaited_->verdicts().begin(
      [this, request, changed = std::move(names), answer = std::move(succeeded)](int error) {
        if (error == 0) return answer();
        notifier_.queue(changed);
        fuse_reply_err(request, error);
      });
  interrupts_.armVerdict(request, ticket);
  awaited_->awaitVerdict(ticket, nodes, patience_);
}

}  // namespace tulo
