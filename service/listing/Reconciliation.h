// One reconciliation of one folder, inside its transaction: what its steps share, and what comes of
// it.
#pragma once

#include <exception>
#include <utility>
#include <vector>

#include "service/kernel/Folders.h"
#include "service/kernel/Notifier.h"
#include "service/kernel/OpenFiles.h"
#include "service/replica/ReplicaWriter.h"

namespace tulo {

struct Reconciliation {
  ReplicaWriter& writer;
  OpenFiles& openFiles;
  const Folders& folders;
  const Node folder;  // as it was before
  // Nobody has seen anything of the folder, so the kernel need not be told of what is new in it.
  const bool firstTime;
  // Whether the gate of the open files is held, so that contents may change.
  const bool gateHeld;

  Invalidations invalidations = {};
  std::vector<Entry> leftBehind = {};  // what stays under its number with those who have it open
  // Folders that go on under another number, and that number.
  std::vector<std::pair<NodeId, NodeId>> renumbered = {};
  bool listingChanged = false;  // of the folder, as programs see it
  // Something of the provider's listing was not taken over, so the same listing is to be looked at
  // again.
  bool incomplete = false;
  // So soon that nobody has to ask for it.
  bool outdated = false;
};

// Thrown where contents change while the gate is not held: whether they are open has to be asked
// under it. The transaction is to be made once more.
struct NeedsGate : std::exception {};

}  // namespace tulo
