#include "service/listing/Sweep.h"

#include <chrono>
#include <future>
#include <utility>
#include <vector>

namespace tulo {

namespace {

constexpr std::chrono::milliseconds kRetryInterval{500};

}  // namespace

Sweep::Sweep(SweepPlan& plan, const Generations& generations, Lister& lister, Notifier& notifier,
             Anchor& anchor)
    : plan_(plan),
      generations_(generations),
      lister_(lister),
      notifier_(notifier),
      anchor_(anchor) {}

void Sweep::start() {
  thread_ = std::thread([this] { run(); });
}

void Sweep::stop() {
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    wanted_.notifyAll();
  }
  if (thread_.joinable()) thread_.join();
}

void Sweep::committed() {
  const MutexLock lock(mutex_);
  pace_.committed(SweepPace::Clock::now());
  wanted_.notifyAll();
}

bool Sweep::isPouring() {
  const MutexLock lock(mutex_);
  return pace_.isPouring(SweepPace::Clock::now());
}

void Sweep::dropListings(const std::vector<NodeId>& folders) {
  Invalidations invalidations;
  for (NodeId folder : folders)
    invalidations.push_back(dataChanged(folder));
  notifier_.queue(std::move(invalidations));
}

int Sweep::refresh(NodeId folder) {
  std::promise<int> done;
  lister_.refresh(folder, [&done](int error) { done.set_value(error); });
  return done.get_future().get();
}

bool Sweep::step() {
  const SweepPlan::Step step = plan_.next(generations_.current(), isPouring());
  if (step.beginsPass) anchor_.ask();
  if (step.folder == kNoNode) return false;
  dropListings(step.overtaken);
  return refresh(step.folder) == 0 || !step.isRetry;
}

bool Sweep::waitForWork(MutexLock& lock) {
  const auto end = SweepPace::Clock::now() + kRetryInterval;
  while (!stopping_ && !plan_.isBehind(generations_.current())) {
    if (!wanted_.waitUntil(lock, end)) break;
  }
  return !stopping_;
}

bool Sweep::rest(MutexLock& lock) {
  while (!stopping_) {
    const auto now = SweepPace::Clock::now();
    const auto due = pace_.due(now);
    if (due <= now) return true;
    wanted_.waitUntil(lock, due);
  }
  return false;
}

void Sweep::run() {
  MutexLock lock(mutex_);
  while (waitForWork(lock)) {
    pace_.beganRun(SweepPace::Clock::now());
    for (bool more = true; more && rest(lock);) {
      lock.unlock();
      const auto began = SweepPace::Clock::now();
      more = step();
      lock.lock();
      pace_.listed(began, SweepPace::Clock::now());
    }
  }
}

}  // namespace tulo
