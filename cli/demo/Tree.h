// An account's whole tree as the system lists it, and as the demo prints it.
//
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cli/demo/Account.h"
#include "cli/demo/Terminal.h"

namespace tulo::cli::demo {

struct TreeNode {
  platform::ItemPointer item;
  std::vector<TreeNode> children;  // folders first, then by name
};

struct TreeCounts {
  std::int64_t files = 0;
  std::int64_t folders = 0;
  std::int64_t marked = 0;
  std::int64_t locked = 0;
};

// All that is below a container. `betweenFolders` is called before each listing and may throw.
// Throws std::runtime_error when a folder cannot be listed.
std::vector<TreeNode> readTree(Account& account, const std::string& container,
                               const std::function<void()>& betweenFolders);

TreeCounts countTree(const std::vector<TreeNode>& nodes);

// Prints two levels whole and sums up what lies deeper.
void printTree(const std::vector<TreeNode>& nodes, Terminal& terminal);

bool isFolder(const platform::NSFileProviderItem& item);
// A file that may be read and nothing else.
bool isLocked(const platform::NSFileProviderItem& item);
// Whether the name that is shown ends in a mark made of the item's own identifier.
bool isMarked(const platform::NSFileProviderItem& item);

}  // namespace tulo::cli::demo
