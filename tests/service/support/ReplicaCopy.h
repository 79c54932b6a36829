// What the end of the process would leave of a replica at this moment.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "service/replica/Meta.h"
#include "service/replica/Replica.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {

class ReplicaCopy {
 public:
  explicit ReplicaCopy(const std::string& from) {
    for (const char* name : {"replica.db", "replica.db-wal"})
      std::filesystem::copy_file(from + "/" + name, directory.file(name));
  }

  std::int64_t number(const std::string& key) const {
    Replica replica(directory.path());
    return replica.read([&](ReplicaReader& reader) { return meta::integer(reader, key); });
  }

  TemporaryDirectory directory;
};

}  // namespace tulo::test
