// The bytes and the attributes of one file, taken over to another.
//
// Threads: may be called on any thread. Errors: std::system_error.
#pragma once

#include <sys/stat.h>

namespace tulo::platform {

// Makes the empty file `target` a copy of `source`: a clone that shares the blocks where the file
// system can, else the data, with holes left as holes. Both are open; reads from offset 0 on. A
// source that grows or shrinks meanwhile gives what could be read.
void copyFileBytes(int source, int target);

// Takes over the user's extended attributes, as far as the target's file system holds them.
void copyExtendedAttributes(int source, int target);

// Takes over mode and modification time. Comes last: the mode may forbid what else is to be done,
// and each write moves the time.
void copyModeAndTime(const struct stat& status, int target);

}  // namespace tulo::platform
