// Whether an index belongs to the folder that it is to follow.
//
// Threads: not thread-safe; the account guards what it is given.
#pragma once

#include <string>

#include "host/folder/FolderIndex.h"
#include "host/folder/ServedFolder.h"

namespace tulo::host {

// What tells the account of this folder from others, whatever index follows it.
std::string accountIdentity(const std::string& folder);

// An index that followed another folder's contents would tell the system that every file of this
// account is gone: throws StartError where it has followed another one, and where the folder is
// empty and not the one of before, as a mount point is without its disk. Otherwise remembers it.
void requireSameRoot(FolderIndex& index, const ServedFolder& folder, const std::string& account);

}  // namespace tulo::host
