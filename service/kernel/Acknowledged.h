// What the host acknowledged while listings were being made.
//
// A listing shows the host as it was when it was read. What is acknowledged between that moment and
// the one in which the listing reaches the replica is newer than the listing, and no row of the
// journal stands for it any more: taken at its word, such a listing would bring back what was just
// deleted, and take away what was just made.
//
// Threads: every member may be called on any thread. Lifetime: outlives its watches.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "platform/linux/Mutex.h"

namespace tulo {

class Acknowledged {
 public:
  // One listing, from before it is read until it is in the replica.
  class Watch {
   public:
    explicit Watch(Acknowledged& owner);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // The identifiers of the items that are newer than the listing. Inside a transaction of the
    // replica: none comes along as long as it lasts.
    std::unordered_set<std::string> newer() const;

   private:
    Acknowledged& owner_;
    std::uint64_t begun_ = 0;
  };

  // Inside the transaction in which the journal's row of the item ends.
  void note(const std::string& identifier);

 private:
  // A leaf.
  mutable Mutex mutex_;
  std::uint64_t now_ TULO_GUARDED_BY(mutex_) = 0;
  std::multiset<std::uint64_t> watches_ TULO_GUARDED_BY(mutex_);
  // When each was acknowledged last; empty while nobody watches.
  std::unordered_map<std::string, std::uint64_t> times_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
