// What is agreed with the kernel when the connection is made. Private to the mount.
//
// Threads: pure functions.
#pragma once

#include "service/mount/Fuse.h"

namespace tulo {

// `writable`: programs may change something.
void negotiate(fuse_conn_info& connection, bool writable);

}  // namespace tulo
