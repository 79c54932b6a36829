// How an entry gets its place on the disk: under a name that is free, or instead of another one.
//
// Threads: not thread-safe; the account guards it. Errors: OperationError, sqlite::DatabaseError.
#pragma once

#include <string>

#include "host/folder/FolderIndex.h"
#include "host/folder/Node.h"
#include "host/folder/Places.h"
#include "host/folder/WorkItem.h"

namespace tulo::host {

class Placement {
 public:
  // Both must outlive the object.
  Placement(FolderIndex& index, Places& places) : index_(index), places_(places) {}

  // What has just got its contents is announced in the index before it shows.
  enum class Announcement { needed, needless };

  // Moves an entry to `to` and, if its name is taken there, to the next one that is free;
  // `node.diskName` is the one it got. The move is on the disk when the call returns.
  void moveToFreeName(int fromFolder, const std::string& from, const Place& to, Node& node,
                      const std::string& shownName, Announcement announcement);

 private:
  FolderIndex& index_;
  Places& places_;
};

// Puts an item in the place of the entry `diskName`, which keeps its permissions and is then the
// item.
void replaceContents(const WorkItem& item, const Place& place, const std::string& diskName);

}  // namespace tulo::host
