// What stands behind the handle that the kernel has of an open file. Private to the mount.
//
// Threads: every member may be called on any thread; a handle is dropped once, after all else.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "platform/linux/Mutex.h"
#include "service/mount/Fuse.h"
#include "service/mount/MountParts.h"
#include "service/mount/Passthrough.h"

namespace tulo {

class Handles {
 public:
  Handles(const MountParts& parts, Passthrough& passthrough);

  // Has the contents open for writing, if that is what the flags ask for. Returns 0 or an errno.
  int prepareToWrite(const fuse_file_info& flags, OpenFile& file) const;
  // The answer to an open, which has the file from now on, until drop().
  fuse_file_info give(fuse_req_t request, fuse_file_info info, std::unique_ptr<OpenFile> file)
      TULO_EXCLUDES(mutex_);
  static OpenFile& fileOf(const fuse_file_info& info) {
    return *reinterpret_cast<OpenFile*>(info.fh);
  }
  // Lets go of a file that could not be opened after all.
  void close(std::unique_ptr<OpenFile> file);
  // Without a request when the kernel did not get the answer to the open.
  void drop(fuse_req_t request, const fuse_file_info& info) TULO_EXCLUDES(mutex_);
  // No request comes any more: drops all that the kernel has, which releases nothing when it ends a
  // connection.
  void dropAll() TULO_EXCLUDES(mutex_);

 private:
  void finish(fuse_req_t request, std::unique_ptr<OpenFile> file);

  LocalFiles* const files_;
  Passthrough& passthrough_;
  const bool waitsWhenClosing_;
  Mutex mutex_;  // a leaf
  // Those that the kernel has, by their address.
  std::unordered_map<std::uint64_t, std::unique_ptr<OpenFile>> given_ TULO_GUARDED_BY(mutex_);
};

}  // namespace tulo
