#include "service/listing/Reconciler.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "service/base/Time.h"
#include "service/listing/FolderChanges.h"
#include "service/listing/ListingSort.h"
#include "service/listing/MissingRows.h"
#include "service/listing/NewRows.h"
#include "service/listing/Rebinding.h"
#include "service/listing/Reconciliation.h"
#include "service/listing/RowUpdates.h"
#include "service/replica/Meta.h"

namespace tulo {

namespace {

void finishFolder(Reconciliation& pass, const std::string& digest, const ListingStamp& stamp) {
  const NodeId folder = pass.folder.id;
  if (pass.listingChanged && !pass.firstTime) {
    pass.writer.setModified(folder, {secondsNow(), {}});
    pass.invalidations.push_back(dataChanged(folder));
  }
  pass.writer.setListed(folder, stamp.generation, pass.incomplete ? std::string() : digest);
  meta::set(pass.writer, "generation", static_cast<std::int64_t>(stamp.generation));
  meta::set(pass.writer, "fingerprint", std::string_view(stamp.fingerprint));
}

}  // namespace

Reconciler::Result Reconciler::reconcile(const Input& input) {
  // Most listings change no contents; holding the gate for a long one would hold up every open.
  try {
    return attempt(input, false);
  } catch (const NeedsGate&) {
    const ExclusiveLock gate(openFiles_.gate());
    return attempt(input, true);
  }
}

Reconciler::Result Reconciler::attempt(const Input& input, bool gateHeld) {
  Result result;
  std::vector<Entry> leftBehind;
  std::vector<std::pair<NodeId, NodeId>> renumbered;
  std::vector<NodeId> relist;
  replica_.write(Durability::eventual, [&](ReplicaWriter& writer) {
    const std::unordered_set<std::string> newer = input.watch.newer();
    std::vector<Node> children = writer.childNodes(input.folder);
    std::optional<Node> folder = writer.node(input.folder);
    if (!folder) return;
    const bool firstTime = folder->listed == 0 && children.empty();
    Reconciliation pass{writer, openFiles_, folders_, std::move(*folder), firstTime, gateHeld};
    relist = Rebinding(writer, pass.folder, newer, store_).bind(children, input.listing);
    FolderChanges changes(writer, pass.folder);
    const SortedListing sorted = sortOut({input.listing, children, newer, changes, openFiles_});
    pass.incomplete = sorted.incomplete;
    detachMissing(pass, changes, sorted.missing);
    updateRows(pass, sorted.kept);
    insertRows(pass, sorted.fresh);
    finishFolder(pass, input.digest, input.stamp);
    result = {std::move(pass.invalidations), sorted.outdated || pass.outdated, {}};
    leftBehind = std::move(pass.leftBehind);
    renumbered = std::move(pass.renumbered);
  });
  for (const auto& [folder, fresh] : renumbered)
    folders_.renumbered(folder, fresh);
  for (const NodeId folder : relist)
    folders_.dropVerified(folder);
  result.relist = std::move(relist);
  for (const Entry& entry : leftBehind)
    openFiles_.leaveBehind(entry);
  return result;
}

}  // namespace tulo
