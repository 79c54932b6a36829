#include "service/Housekeeper.h"

#include <chrono>
#include <exception>
#include <utility>

#include "service/base/ServiceLog.h"

namespace tulo {

namespace {

constexpr std::chrono::milliseconds kRhythm{1000};
// Even with more to do there is a pause, so that this never takes a processor for itself.
constexpr std::chrono::milliseconds kPause{20};

}  // namespace

Housekeeper::Housekeeper(std::function<bool()> step, std::function<void()> synchronize)
    : step_(std::move(step)), synchronize_(std::move(synchronize)) {}

Housekeeper::~Housekeeper() {
  stop();
}

void Housekeeper::start() {
  lastSynchronized_ = std::chrono::steady_clock::now();
  thread_ = std::thread([this] { keep(); });
}

void Housekeeper::stop() {
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    changed_.notifyAll();
  }
  if (thread_.joinable()) thread_.join();
}

void Housekeeper::poke() {
  const MutexLock lock(mutex_);
  poked_ = true;
  changed_.notifyAll();
}

bool Housekeeper::round() {
  bool more = false;
  try {
    more = step_();
    const auto now = std::chrono::steady_clock::now();
    if (now - lastSynchronized_ >= kRhythm) {
      synchronize_();
      lastSynchronized_ = now;
    }
  } catch (const std::exception& error) {
    serviceLog().error("housekeeping failed: %{public}@", {error.what()});
  }
  return more;
}

void Housekeeper::rest(MutexLock& lock, bool more) {
  const auto end = std::chrono::steady_clock::now() + (more ? kPause : kRhythm);
  while (!stopping_ && !poked_ && changed_.waitUntil(lock, end)) {
  }
}

void Housekeeper::keep() {
  MutexLock lock(mutex_);
  while (!stopping_) {
    poked_ = false;
    lock.unlock();
    const bool more = round();
    lock.lock();
    rest(lock, more);
  }
}

}  // namespace tulo
