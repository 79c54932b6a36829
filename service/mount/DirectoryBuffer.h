// The reply to one directory request. Private to the mount.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <memory>

#include "service/mount/Fuse.h"

namespace tulo {

class DirectoryBuffer {
 public:
  explicit DirectoryBuffer(std::size_t size) : size_(size), data_(new char[size]) {}

  // False, and nothing added, when the entry does not fit. An entry without parameters is one
  // that the kernel shall not remember.
  bool add(fuse_req_t request, const char* name, const struct stat& status,
           const fuse_entry_param* parameters, off_t next, bool plus) {
    const std::size_t room = size_ - used_;
    std::size_t needed = 0;
    if (plus) {
      fuse_entry_param none = {};
      none.attr = status;
      needed = fuse_add_direntry_plus(request, data_.get() + used_, room, name,
                                      parameters ? parameters : &none, next);
    } else {
      needed = fuse_add_direntry(request, data_.get() + used_, room, name, &status, next);
    }
    if (needed > room) return false;
    used_ += needed;
    return true;
  }

  const char* data() const { return data_.get(); }
  std::size_t used() const { return used_; }

 private:
  const std::size_t size_;
  // Left uninitialised: the kernel asks for far more than a folder usually fills.
  std::unique_ptr<char[]> data_;
  std::size_t used_ = 0;
};

}  // namespace tulo
