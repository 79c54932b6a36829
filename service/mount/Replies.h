// Answers that several handlers give. Private to the mount.
//
// Threads: pure functions but for the reply.
#pragma once

#include <string_view>

#include "service/mount/Fuse.h"

namespace tulo {

// How many bytes were written, or an errno as a negative number.
void replyWritten(fuse_req_t request, ssize_t count);
// As many bytes as were read, or an errno as a negative number.
void replyRead(fuse_req_t request, const char* bytes, ssize_t count);
// A value for somebody who has room for so much; 0: who asks how long it is.
void replySized(fuse_req_t request, std::string_view value, std::size_t room);
// Answers the request when no folder can hold such a name.
bool refuseLongName(fuse_req_t request, const char* name);

}  // namespace tulo
