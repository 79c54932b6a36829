// Universally unique, lexicographically sortable identifiers: 48 bits of milliseconds since the
// epoch and 80 random bits, as 26 characters of Crockford's base 32.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/Mutex.h"

namespace tulo::host {

using UlidBytes = std::array<std::uint8_t, 16>;

std::string ulidText(const UlidBytes& bytes);

// Nothing for text that is not a ULID in its canonical (upper case) form.
std::optional<UlidBytes> ulidBytes(std::string_view text);

// Makes ULIDs, each greater than every one before it, whatever the clock does.
//
// Threads: every member may be called on any thread.
class UlidSource {
 public:
  using Time = std::chrono::sys_time<std::chrono::milliseconds>;
  using Clock = std::function<Time()>;

  // An empty `clock` means the system's.
  explicit UlidSource(Clock clock = {});

  std::string next() TULO_EXCLUDES(mutex_);

  // Makes every later identifier greater than `ulid`, and none that another source may have made
  // after it, whatever the clock does; text that is not a ULID is ignored.
  void follow(std::string_view ulid) TULO_EXCLUDES(mutex_);

 private:
  const Clock clock_;
  Mutex mutex_;
  UlidBytes last_ TULO_GUARDED_BY(mutex_){};
};

}  // namespace tulo::host
