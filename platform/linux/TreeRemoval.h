// Removal of whatever stands under a name.
//
// Threads: may be called on any thread.
#pragma once

#include <string>

namespace tulo::platform {

// Removes the item of that name in the open folder: a file, a symbolic link (never what it points
// to), or a folder with all that is in it, however deep. Throws std::system_error.
void removeTree(int folder, const std::string& name);

}  // namespace tulo::platform
