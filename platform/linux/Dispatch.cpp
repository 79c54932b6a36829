#include "platform/Dispatch.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "platform/linux/WorkerPool.h"

namespace tulo::platform {

namespace {

constexpr int utilityNice = 10;

// Values of the kernel's input/output priority interface, for which there is no library header.
constexpr int ioprioWhoProcess = 1;
constexpr int ioprioClassShift = 13;
constexpr int ioprioClassBestEffort = 2;
constexpr int ioprioClassIdle = 3;
constexpr int ioprioLowest = 7;

// On Linux both priorities belong to the thread. A refusal costs nothing but the courtesy.
void lowerPriority() {
  const auto thread = static_cast<id_t>(syscall(SYS_gettid));
  const int nice = getpriority(PRIO_PROCESS, thread);
  setpriority(PRIO_PROCESS, thread, std::max(nice, utilityNice));
  const long current = syscall(SYS_ioprio_get, ioprioWhoProcess, 0);
  if (current >= 0 && (current >> ioprioClassShift) == ioprioClassIdle) return;
  syscall(SYS_ioprio_set, ioprioWhoProcess, 0,
          (ioprioClassBestEffort << ioprioClassShift) | ioprioLowest);
}

class GlobalQueue final : public DispatchQueue {
 public:
  explicit GlobalQueue(WorkerPool::Options options) : pool_(std::move(options)) {}

  void async(std::function<void()> work) override { pool_.async(std::move(work)); }

 private:
  WorkerPool pool_;
};

WorkerPool::Options optionsNamed(const char* name) {
  WorkerPool::Options options;
  options.name = name;
  return options;
}

WorkerPool::Options utilityOptions() {
  WorkerPool::Options options = optionsNamed("tulo-utility");
  options.prepareWorker = lowerPriority;
  return options;
}

// Both come into being together, so that neither pool's starter is born on a lowered worker.
struct GlobalQueues {
  GlobalQueue userInitiated{optionsNamed("tulo-user")};
  GlobalQueue utility{utilityOptions()};
};

}  // namespace

DispatchQueue& DispatchQueue::global(QualityOfService qualityOfService) {
  // Never destroyed: workers may still be busy when the process runs its exit handlers.
  static GlobalQueues& queues = *new GlobalQueues;
  if (qualityOfService == QualityOfService::utility) return queues.utility;
  return queues.userInitiated;
}

}  // namespace tulo::platform
