// Names that requests hold for themselves, each for as long as its claim lives.
//
// Threads: any thread. Lifetime: an object outlives the claims that it has given.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <utility>

#include "platform/linux/Mutex.h"

namespace tulo::host {

class Claims {
 public:
  class Claim {
   public:
    Claim(Claims& claims, std::string name) : claims_(&claims), name_(std::move(name)) {}
    ~Claim() {
      if (claims_) claims_->release(name_);
    }
    Claim(Claim&& other) noexcept
        : claims_(std::exchange(other.claims_, nullptr)), name_(std::move(other.name_)) {}
    Claim& operator=(Claim&&) = delete;

    const std::string& name() const { return name_; }

   private:
    Claims* claims_;
    std::string name_;
  };

  // Nothing when another one holds the name.
  std::optional<Claim> claim(const std::string& name) TULO_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    if (!names_.insert(name).second) return std::nullopt;
    return std::optional<Claim>(std::in_place, *this, name);
  }

  // Calls `work` with the names that are held; nobody gets or gives up one meanwhile.
  template <typename Work>
  void whileTheyStay(Work work) TULO_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    work(std::as_const(names_));
  }

 private:
  void release(const std::string& name) TULO_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    names_.erase(name);
  }

  Mutex mutex_;
  std::set<std::string> names_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo::host
