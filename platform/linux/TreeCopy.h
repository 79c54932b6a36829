// Copies of files and of whole folder trees.
//
// Threads: may be called on any thread.
#pragma once

#include <stdexcept>
#include <string>

namespace tulo::platform {

// A copy that failed: what() is the path concerned and the reason.
class TreeCopyError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Copies the item at `source` to a new item of that name in the open folder. Symbolic links are
// copied as links; what is neither file, folder nor link is an error and is never opened. Whatever
// stood under the name is an error too. On failure what was copied so far stays.
// Throws TreeCopyError.
void copyTree(const std::string& source, int targetFolder, const std::string& targetName);

}  // namespace tulo::platform
