#include "service/mount/KernelCaches.h"

namespace tulo {

// What the kernel does not know needs no invalidation, so "not found" is no error.
void KernelCaches::deliver(const Invalidation& invalidation) {
  switch (invalidation.kind) {
    case Invalidation::Kind::entryChanged:
      dropName(invalidation);
      break;
    case Invalidation::Kind::entryDeleted:
      dropDeleted(invalidation);
      break;
    case Invalidation::Kind::attributesChanged:
      fuse_lowlevel_notify_inval_inode(session_, invalidation.node.number(), -1, 0);
      break;
    case Invalidation::Kind::dataChanged:
      fuse_lowlevel_notify_inval_inode(session_, invalidation.node.number(), 0, 0);
      break;
  }
}

void KernelCaches::dropName(const Invalidation& invalidation) {
  fuse_lowlevel_notify_inval_entry(session_, invalidation.folder.number(), invalidation.name.data(),
                                   invalidation.name.size());
}

void KernelCaches::dropDeleted(const Invalidation& invalidation) {
  const int refused = fuse_lowlevel_notify_delete(
      session_, invalidation.folder.number(), invalidation.node.number(), invalidation.name.data(),
      invalidation.name.size());
  // For a folder with something remembered under it, and for a name that already stands for
  // another node.
  if (refused != 0) dropName(invalidation);
}

}  // namespace tulo
