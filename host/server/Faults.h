// Failures and delays on demand, for tests and for makers of extensions and hosts.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/Mutex.h"

namespace tulo::host {

// What happens to requests of one operation.
struct Fault {
  // "fetch", "thumbnail", "create", "modify", "delete", or "any".
  std::string operation;
  // One of the misbehaviours (Misbehaviour.h), or the failure kind to answer with.
  std::string kind;
  // How many requests; none: all of them.
  std::optional<std::int64_t> times;
};

// "OP=KIND" or "OP=KIND:N". Throws StartError that says what was expected.
Fault parseFault(std::string_view text);

struct Delay {
  std::string operation;
  std::chrono::milliseconds time{0};
};

// "OP=MS". Throws StartError that says what was expected.
Delay parseDelay(std::string_view text);

// Threads: every member may be called on any thread.
class Faults {
 public:
  void add(Fault fault) TULO_EXCLUDES(mutex_);
  void add(const Delay& delay) TULO_EXCLUDES(mutex_);
  void clear() TULO_EXCLUDES(mutex_);

  // The kind of the first fault that waits for this operation, which is one fewer then.
  std::optional<std::string> take(std::string_view operation) TULO_EXCLUDES(mutex_);
  std::chrono::milliseconds delay(std::string_view operation) TULO_EXCLUDES(mutex_);

 private:
  Mutex mutex_;
  std::vector<Fault> faults_ TULO_GUARDED_BY(mutex_);
  std::map<std::string, std::chrono::milliseconds, std::less<>> delays_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo::host
