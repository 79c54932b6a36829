#include "service/mount/Replies.h"

#include <cerrno>
#include <cstring>

#include "service/base/Names.h"

namespace tulo {

void replyWritten(fuse_req_t request, ssize_t count) {
  if (count < 0) {
    fuse_reply_err(request, static_cast<int>(-count));
  } else {
    fuse_reply_write(request, static_cast<std::size_t>(count));
  }
}

void replyRead(fuse_req_t request, const char* bytes, ssize_t count) {
  if (count < 0) {
    fuse_reply_err(request, static_cast<int>(-count));
  } else {
    fuse_reply_buf(request, bytes, static_cast<std::size_t>(count));
  }
}

void replySized(fuse_req_t request, std::string_view value, std::size_t room) {
  if (room == 0) {
    fuse_reply_xattr(request, value.size());
  } else if (room < value.size()) {
    fuse_reply_err(request, ERANGE);
  } else {
    fuse_reply_buf(request, value.data(), value.size());
  }
}

bool refuseLongName(fuse_req_t request, const char* name) {
  if (std::strlen(name) <= names::kLongestName) return false;
  fuse_reply_err(request, ENAMETOOLONG);
  return true;
}

}  // namespace tulo
