#include "service/upload/Failure.h"

#include "service/errors/Errno.h"

namespace tulo {

bool Failure::isGone(const Plan& plan) {
  if (plan.kind == Plan::Kind::remove) {
    outcome_.removed(plan.node.id);
    return true;
  }
  if (plan.kind == Plan::Kind::modify && provider_.lookUp(plan.node.identifier).isGone()) {
    outcome_.itemGone(plan);
    return true;
  }
  if (plan.parentIdentifier == platform::NSFileProviderRootContainerItemIdentifier()) return false;
  if (!provider_.lookUp(plan.parentIdentifier).isGone()) return false;
  outcome_.parentGone(plan);
  return true;
}

void Failure::react(const Plan& plan, const platform::NSError& error) {
  const Reaction reaction = reactionTo(error);
  if (reaction == Reaction::lookAgain && isGone(plan)) return;
  note(plan, error, reaction);
}

void Failure::note(const Plan& plan, const platform::NSError& error, Reaction reaction) {
  tally_.failed(descriptionOf(error));
  const HostHealth::Failure failure = health_.failed(plan.node.id, reaction, files_.now());
  outcome_.failed(plan, error, reaction, failure.random);
  judge_.failed(plan.node.id, errnoFor(error), failure.stopsAll);
}

}  // namespace tulo
