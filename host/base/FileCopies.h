// Copies of contents, files and trees.
//
// Names are single components below a descriptor, as in Files.h.
//
// Threads: any thread. Errors: OperationError.
#pragma once

#include <string>

namespace tulo::host {

// Copies the contents of a file: as a clone that shares its blocks where the file system can.
void copyContents(int from, int to);

// Copies a file or a folder with all that is in it; symbolic links are copied as links, other
// special files are left out. The destination must not exist; what was copied of it stays on
// failure.
void copyTree(int fromFolder, const std::string& from, int toFolder, const std::string& to);

}  // namespace tulo::host
