#include "service/Departure.h"

#include <chrono>
#include <future>
#include <memory>
#include <utility>

#include "service/base/ServiceLog.h"

namespace tulo {

namespace {

using control::Leaving;
using control::UnmountReply;

// Taking a mount away writes back what programs have mapped, which may be much.
constexpr milliseconds kDetaching{25000};
// Where a system that ends waits for the service, too.
constexpr milliseconds kDetachingAtEnd{5000};
constexpr milliseconds kWritingBack{8000};
// After the last user is gone the kernel closes the connection at once.
constexpr milliseconds kClosing{500};
constexpr milliseconds kRhythm{20};

}  // namespace

UnmountReply Departure::leave(const control::UnmountRequest& request) {
  switch (request.how) {
    case Leaving::ifUnused:
      return leaveIfUnused();
    case Leaving::lazily:
      return leaveLazily();
    case Leaving::byForce:
      return leaveByForce();
  }
  return {control::Outcome::refused("unknown way to unmount")};
}

UnmountReply Departure::leaveIfUnused() {
  const MountPoint& point = mount_.point();
  const auto detached = point.detach(MountPoint::Detach::ifUnused, kDetaching);
  if (detached == MountPoint::Detached::yes) return {control::Outcome::good()};
  UnmountReply reply{control::Outcome::refused(
      point.path() +
      (detached == MountPoint::Detached::inUse ? " is in use" : " cannot be unmounted"))};
  reply.programs = programs();
  return reply;
}

UnmountReply Departure::leaveLazily() {
  const MountPoint& point = mount_.point();
  UnmountReply reply{control::Outcome::good()};
  reply.programs = programs();
  if (point.detach(MountPoint::Detach::atOnce, kDetaching) != MountPoint::Detached::yes) {
    reply.outcome = control::Outcome::refused(point.path() + " cannot be unmounted");
    return reply;
  }
  reply.goesOn = !hasEnded(reply.programs.empty() ? kClosing : milliseconds(0));
  return reply;
}

UnmountReply Departure::leaveByForce() {
  UnmountReply reply{control::Outcome::good()};
  reply.programs = programs();
  reply.notWritten = !writeBack();
  return reply;
}

void Departure::prepareEnd(milliseconds grace) {
  // What is in its place by now is another's.
  const bool isGone = mount_.isInItsPlace() &&
                      mount_.point().detach(MountPoint::Detach::ifUnused, kDetachingAtEnd) ==
                          MountPoint::Detached::yes;
  if (isGone) return;
  for (const control::UsingProgram& program : programs())
    serviceLog().info("ends while %{public}@ (process %d) uses %{public}@",
                      {program.name, program.process, program.path});
  awaitWriters(grace);
  if (hasEnded(milliseconds(0)) || writeBack()) return;
  serviceLog().error("what programs have written through mappings was not handed over in time", {});
}

bool Departure::writeBack() {
  return mount_.isInItsPlace() ? mount_.writeBack(kWritingBack) : writeBackOutOfPlace();
}

// No path leads to it any more, so it cannot be asked for all that it has. But before the kernel
// drops the pages of a file it hands over those that were written.
bool Departure::writeBackOutOfPlace() {
  const auto end = std::chrono::steady_clock::now() + kWritingBack;
  Invalidations files;
  for (const NodeId node : openFiles_.allOpenForWriting())
    files.push_back(dataChanged(node));
  const auto delivered = std::make_shared<std::promise<void>>();
  notifier_.queue(std::move(files));
  notifier_.afterDelivery([delivered] { delivered->set_value(); });
  if (delivered->get_future().wait_until(end) != std::future_status::ready) return false;
  const auto left = end - std::chrono::steady_clock::now();
  return mount_.awaitIdle(std::chrono::duration_cast<milliseconds>(left));
}

void Departure::awaitWriters(milliseconds grace) {
  const auto end = std::chrono::steady_clock::now() + grace;
  while (openFiles_.anyForWriting() && std::chrono::steady_clock::now() < end) {
    if (hasEnded(kRhythm)) return;
  }
}

std::vector<control::UsingProgram> Departure::programs() const {
  std::vector<control::UsingProgram> result;
  for (const MountUser& user : mount_.users())
    result.push_back({user.process, user.name, user.path});
  return result;
}

bool Departure::hasEnded(milliseconds patience) {
  const auto end = std::chrono::steady_clock::now() + patience;
  MutexLock lock(mutex_);
  while (!ended_ && changed_.waitUntil(lock, end)) {
  }
  return ended_;
}

void Departure::ended() {
  const MutexLock lock(mutex_);
  ended_ = true;
  changed_.notifyAll();
}

void Departure::count(int difference) {
  const MutexLock lock(mutex_);
  answers_ += difference;
  changed_.notifyAll();
}

void Departure::awaitAnswers() {
  MutexLock lock(mutex_);
  while (answers_ > 0)
    changed_.wait(lock);
}

}  // namespace tulo
