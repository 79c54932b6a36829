#include "service/upload/Failure.h"

#include "service/errors/Errno.h"

namespace tulo {

namespace {

// The host did nothing, and will under what it calls the item now.
platform::NSError planAnew() {
  return platform::fileProviderError(platform::NSFileProviderErrorCode::syncAnchorExpired);
}

}  // namespace

std::optional<platform::NSError> Failure::lookInto(const Plan& plan,
                                                   const platform::NSError& error) {
  if (plan.kind == Plan::Kind::remove) {
    if (reappearance_.ofItem(plan)) return planAnew();
    outcome_.removed(plan.node.id);
    return std::nullopt;
  }
  if (plan.kind == Plan::Kind::modify) {
    const Answer item = provider_.lookUp(plan.node.identifier);
    if (item.isGone()) {
      if (reappearance_.ofItem(plan)) return planAnew();
      outcome_.itemGone(plan);
      return std::nullopt;
    }
    if (item.error) return item.error;
  }
  if (plan.parentIdentifier == platform::NSFileProviderRootContainerItemIdentifier()) return error;
  const Answer parent = provider_.lookUp(plan.parentIdentifier);
  if (!parent.isGone()) return parent.error ? parent.error : error;
  if (reappearance_.ofFolder(plan)) return planAnew();
  outcome_.parentGone(plan);
  return std::nullopt;
}

void Failure::react(const Plan& plan, const platform::NSError& error) {
  std::optional<platform::NSError> left = error;
  if (reactionTo(error) == Reaction::lookAgain) left = lookInto(plan, error);
  if (left) note(plan, *left, reactionTo(*left));
}

void Failure::note(const Plan& plan, const platform::NSError& error, Reaction reaction) {
  tally_.failed(descriptionOf(error));
  const HostHealth::Failure failure = health_.failed(plan.node.id, reaction, files_.now());
  outcome_.failed(plan, error, reaction, failure.random);
  judge_.failed(plan.node.id, errnoFor(error), failure.stopsAll);
}

}  // namespace tulo
