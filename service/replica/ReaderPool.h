// Sessions that read, each with a connection of its own, so that readers never wait for one another
// or for the writer. Idle ones are kept for the next who comes.
//
// Threads: every member may be called on any thread.
// Lifetime: leases end before the pool does.
// Errors: DatabaseError.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/Mutex.h"
#include "service/replica/ReplicaReader.h"

namespace tulo {

class ReaderPool {
 public:
  explicit ReaderPool(std::string path) : path_(std::move(path)) {}

  // A reader for the scope.
  class Lease {
   public:
    explicit Lease(ReaderPool& pool) : pool_(pool), reader_(pool.take()) {}
    ~Lease() { pool_.giveBack(std::move(reader_)); }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    ReplicaReader& reader() { return *reader_; }

   private:
    ReaderPool& pool_;
    std::unique_ptr<ReplicaReader> reader_;
  };

 private:
  std::unique_ptr<ReplicaReader> take() TULO_EXCLUDES(mutex_);
  void giveBack(std::unique_ptr<ReplicaReader> reader) TULO_EXCLUDES(mutex_);

  const std::string path_;
  // Never held during a query.
  Mutex mutex_;
  std::vector<std::unique_ptr<ReplicaReader>> idle_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
