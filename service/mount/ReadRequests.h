// Reading from an open file. Private to the mount.
//
// Threads: every member may be called on any thread; each request is answered before it returns.
#pragma once

#include "service/mount/Fuse.h"
#include "service/mount/MountParts.h"

namespace tulo {

class ReadRequests {
 public:
  explicit ReadRequests(const MountParts& parts);

  void read(fuse_req_t request, std::size_t size, off_t offset, const fuse_file_info& info);

 private:
  // False when nobody has changed the contents through this mount.
  bool readShared(fuse_req_t request, OpenFile& file, std::size_t size, off_t offset);
  void readContents(fuse_req_t request, OpenFile& file, std::size_t size, off_t offset);

  Contents& contents_;
  // Null in a mount in which nothing can be changed.
  LocalFiles* const files_;
};

}  // namespace tulo
