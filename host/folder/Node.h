// A folder or file of an account together with its place on the disk.
#pragma once

#include <cstdint>
#include <string>

#include "host/base/EntryStat.h"

namespace tulo::host {

// By what a file is recognised, and its contents are told from others without reading them. Of a
// folder only inode and birth count.
struct Fingerprint {
  std::uint64_t inode = 0;
  DiskTime born;
  std::int64_t size = 0;
  DiskTime modified;

  static Fingerprint of(const EntryStat& stat);

  // The same file with the same contents, as far as can be told.
  bool hasContentsOf(const Fingerprint& other) const;
};

struct Node {
  std::string ulid;
  std::string parent;
  std::string diskName;
  bool isFolder = false;
  Fingerprint fingerprint;

  bool isUnchanged(const EntryStat& stat) const {
    return fingerprint.hasContentsOf(Fingerprint::of(stat));
  }
};

}  // namespace tulo::host
