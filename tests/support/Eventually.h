// Waiting for another thread with a bound, so that a test which waits in vain fails instead of
// hanging.
#pragma once

#include <chrono>
#include <concepts>
#include <thread>

namespace tulo::test {

// Far longer than anything takes, also under a sanitizer on a loaded machine.
inline constexpr std::chrono::seconds patience{60};

// Whether the condition came true within the bound.
bool eventually(const std::predicate auto& condition) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace tulo::test
