#include "service/Engine.h"

#include <exception>

#include "service/base/ServiceLog.h"

namespace tulo {

Engine::Engine(const EngineOptions& options, const ExtensionFactory& factory)
    : options_(options),
      rooms_(options_, factory),
      housekeeper_([this] { return housekeepingStep(); },
                   [this] { replica().synchronizeCommitted(); }) {}

Engine::~Engine() {
  stop();
}

void Engine::start() {
  sync().start();
  if (options_.readWrite) uploader().start();
  housekeeper_.start();
}

void Engine::stop() {
  if (stopped_.exchange(true)) return;
  housekeeper_.stop();
  contents().stop();
  files().stop();
  uploader().stop();
  sync().stop();
  notifier().stop();
  try {
    contents().saveUseStep();
    sync().saveVerified();
  } catch (const std::exception& error) {
    serviceLog().error("cannot write down the last state: %{public}@", {error.what()});
  }
  extension()->invalidate();
}

bool Engine::housekeepingStep() {
  bool more = contents().evictStep();
  more = contents().keepStep() || more;
  more = contents().purgeStep() || more;
  more = contents().durableStep() || more;
  contents().saveUseStep();
  replica().checkpointStep();
  replica().refillReserveStep();
  const std::uint64_t generation = sync().generation();
  if (generation != savedGeneration_) {
    sync().saveVerified();
    savedGeneration_ = generation;
  }
  return more;
}

}  // namespace tulo
