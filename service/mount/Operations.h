// Which handler answers which of the kernel's requests. Private to the mount.
#pragma once

#include "service/mount/Fuse.h"

namespace tulo {

// For a session whose data is Handlers.
const fuse_lowlevel_ops& operations();

}  // namespace tulo
