#include "service/upload/Failure.h"

#include "service/errors/Errno.h"

namespace tulo {

namespace {

// So many attempts may fail before a program is told that waits for the host.
constexpr std::int64_t kSoon = 3;

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

void Failure::react(const Plan& plan, const platform::NSError& error, End end) {
  std::optional<platform::NSError> left = causeOf(plan, error);
  if (reactionTo(*left) == Reaction::lookAgain) left = lookInto(plan, error);
  if (left) note(plan, *left, reactionTo(*left), end);
}

platform::NSError Failure::causeOf(const Plan& plan, const platform::NSError& error) {
  if (reactionTo(error) != Reaction::uncertain || !plan.sendsContents()) return error;
  const int number = probe_.errorOf(parts_.store.path(plan.node.content));
  return number == 0 ? error : handoverError(number);
}

// Somebody else is at the item, or was just now: the host has this side look again, and a program
// that waits learns what comes of that.
bool Failure::passesSoon(const Plan& plan, Reaction reaction) {
  const bool changes =
      plan.kind == Plan::Kind::remove || (plan.kind == Plan::Kind::modify && plan.sendsContents());
  return changes && reaction == Reaction::retryUnreachable &&
         plan.change.standing.attempts() < kSoon;
}

void Failure::note(const Plan& plan, const platform::NSError& error, Reaction reaction, End end) {
  tally_.failed(descriptionOf(error));
  const HostHealth::Failure failure = health_.failed(plan.node.id, reaction, parts_.files.now());
  outcome_.failed(plan, error, {reaction, failure.random, end == End::answered});
  if (passesSoon(plan, reaction) && !failure.stopsAll) return;
  judge_.failed(plan.node.id, errnoFor(error), failure.stopsAll);
}

}  // namespace tulo
