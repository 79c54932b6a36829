#include "host/folder/Node.h"

namespace tulo::host {

Fingerprint Fingerprint::of(const EntryStat& stat) {
  Fingerprint print{stat.inode, stat.born, 0, {}};
  if (stat.isFile) {
    print.size = stat.size;
    print.modified = stat.modified;
  }
  return print;
}

bool Fingerprint::hasContentsOf(const Fingerprint& other) const {
  return inode == other.inode && size == other.size && modified == other.modified;
}

}  // namespace tulo::host
