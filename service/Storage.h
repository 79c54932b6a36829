// What the service keeps on the disk, opened together: the replica and the files of contents.
//
// A replica that is made anew has a root, and contents that were not sent and belong to none of its
// rows are files in a folder for what was recovered.
//
// Threads: every member may be called on any thread.
// Errors: DatabaseError and ContentError from the constructor.
#pragma once

#include <cstddef>
#include <string>

#include "service/replica/ContentStore.h"
#include "service/replica/Replica.h"

namespace tulo {

class Storage {
 public:
  // `directory` must exist. `shared` is the one that the provider's side writes to.
  Storage(const std::string& directory, const std::string& shared, const CacheLimits& limits);

  Replica& replica() { return replica_; }
  ContentStore& store() { return store_; }
  // Files that were recovered because the replica was damaged.
  std::size_t recovered() const { return recovered_; }

 private:
  void addRoot();
  void recover();
  void cutNames();

  Replica replica_;
  ContentStore store_;
  std::size_t recovered_ = 0;
};

}  // namespace tulo
