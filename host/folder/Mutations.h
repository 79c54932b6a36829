// What create, modify and delete do to an account's folder and to its index.
//
// Names have been found valid before. Contents are copied between a check and the change itself,
// with the account's lock let go, so the change looks at everything once more. A change is in the
// index, durably, when the call returns; one that fails leaves both as they were.
//
// Threads: not thread-safe; the account guards it. Errors: OperationError, sqlite::DatabaseError.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/account/Request.h"
#include "host/account/StagedCopy.h"
#include "host/folder/FolderIndex.h"
#include "host/folder/Lookup.h"
#include "host/folder/Node.h"
#include "host/folder/Placement.h"
#include "host/folder/Places.h"
#include "host/folder/RecentChanges.h"
#include "host/folder/Tree.h"
#include "host/folder/WorkItem.h"
#include "host/index/Ulid.h"

namespace tulo::host {

class Mutations {
 public:
  // What the changes are made with; all must outlive the object.
  struct Parts {
    FolderIndex& index;
    Places& places;
    Tree& tree;
    UlidSource& ulids;
  };

  // `quota`: the most bytes that the files may have together, where there is such a bound.
  Mutations(const Parts& parts, std::optional<std::int64_t> quota);

  void checkCreate(const CreateRequest& request, const StagedCopy* contents);
  // `item` is what is to be shown; gives its identifier.
  std::string create(const CreateRequest& request, const StagedCopy* contents,
                     const WorkItem& item);

  void checkModify(const ModifyRequest& request, const StagedCopy* contents);
  // `item` holds the new contents, null where there are none.
  void modify(const ModifyRequest& request, const StagedCopy* contents, const WorkItem* item);

  // Moves what is deleted into `grave`.
  void remove(const Node& node, const WorkItem& grave);
  // What a delete may remove.
  Node requireRemovable(const DeleteRequest& request);

 private:
  // Where a modify wants its item, and under which name.
  struct Target {
    Place place;
    std::string shownName;
    bool moves = false;
  };

  void requireUnlocked(const Node& node);
  // Throws `locked` where another program changed the file, or something in the folder, since the
  // sender of the request looked: it has to look again.
  void requireSeen(const Node& node, RecentChanges::Clock::time_point look);
  void requireRoom(std::int64_t more);
  Node requireModifiable(const ModifyRequest& request, const StagedCopy* contents);
  std::optional<std::string> existingFolder(const std::string& parent, const std::string& name);
  Target targetOf(const ModifyRequest& request, const Node& node);
  void apply(const Target& target, Node node, const WorkItem* item);
  void replace(const Target& target, const Node& node, const WorkItem& item, const Place& before,
               const std::string& diskNameBefore);

  FolderIndex& index_;
  Tree& tree_;
  UlidSource& ulids_;
  Lookup lookup_;
  Placement placement_;
  std::optional<std::int64_t> quota_;
};

}  // namespace tulo::host
