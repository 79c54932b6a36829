// Files and folders below a descriptor, one path component at a time.
//
// Every name is a single component that is looked up in the folder of a descriptor and never
// followed when it is a symbolic link: whatever a name says, nothing outside that folder is
// reached.
//
// Threads: any thread. Errors: OperationError, unless a function says otherwise.
#pragma once

#include <functional>
#include <string>

#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

// An absolute or relative path as the user gave it; symbolic links are followed.
FileDescriptor openFolderPath(const std::string& path);
// An invalid descriptor when there is no folder of that name.
FileDescriptor openFolder(int folder, const std::string& name);
// The regular file `name`, for reading; an invalid descriptor when there is none.
FileDescriptor openFile(int folder, const std::string& name);
// The folder `name`, made with mode 0700 if it does not exist.
FileDescriptor makeFolder(int folder, const std::string& name);

// Calls `visit` for each entry but "." and "..". Throws when the folder cannot be read to its end.
void forEachEntry(int folder, const std::function<void(const std::string& name)>& visit);

// Writes a file, or each file and folder of a tree, to the disk.
void syncTree(int folder, const std::string& name);
void syncDescriptor(int fd);

// Removes a file or a folder with all that is in it. An entry that is not there is no failure.
void removeTree(int folder, const std::string& name);

enum class MoveResult { moved, taken, otherFileSystem };

// Renames; never over an existing entry.
MoveResult moveEntry(int fromFolder, const std::string& from, int toFolder, const std::string& to);

// Puts each of the two entries in the place of the other, in one step. False where the file system
// does not know how.
bool exchangeEntries(int folderA, const std::string& a, int folderB, const std::string& b);

// Renames a file over another one.
void replaceFile(int fromFolder, const std::string& from, int toFolder, const std::string& to);

}  // namespace tulo::host
