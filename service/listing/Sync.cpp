#include "service/listing/Sync.h"

namespace tulo {

Sync::Sync(Replica& replica, ExtensionPointer extension, Notifier& notifier, Folders& folders,
           OpenFiles& openFiles, const ContentStore& store, SourceWatch& source,
           Acknowledged& acknowledged, const Belief& belief)
    : source_(source),
      folders_(folders),
      generations_(replica, source, folders),
      plan_(folders),
      anchor_(extension),
      lister_({replica, extension, notifier, folders, openFiles, store, source, acknowledged,
               generations_, plan_, belief}),
      lookUps_(replica, extension, lister_),
      sweep_(plan_, generations_, lister_, notifier, anchor_) {
  generations_.whenCommitted([this] { sweep_.committed(); });
}

Sync::~Sync() {
  stop();
}

void Sync::start() {
  sweep_.start();
  source_.start([this] { checkSource(); });
}

// First nothing new is begun, so that what the sweep and the look-ups wait for comes to an end.
void Sync::stop() {
  source_.stop();
  lister_.refuse();
  lookUps_.refuse();
  sweep_.stop();
  lister_.stop();
  lookUps_.awaitNone();
}

Sync::Statistics Sync::statistics() const {
  const Lister::Statistics listings = lister_.statistics();
  Statistics result;
  result.generation = generation();
  result.listings = listings.listings;
  result.unchanged = listings.unchanged;
  result.lookUps = lookUps_.count();
  result.staleFolders = folders_.olderThan(result.generation).size();
  result.lastError = listings.lastError;
  result.anchor = anchor_.last();
  return result;
}

}  // namespace tulo
