// The index of an account that is a folder: the rows that the extension reads, and where each of
// them is on the disk, changed together.
//
// Threads: not thread-safe; the account guards it. Errors: sqlite::DatabaseError.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/folder/Intents.h"
#include "host/folder/Node.h"
#include "host/folder/NodeStore.h"
#include "host/folder/RecentChanges.h"
#include "host/index/IndexDatabase.h"
#include "host/index/IndexRows.h"
#include "host/index/IndexState.h"

namespace tulo::host {

class FolderIndex {
 public:
  // Opens or creates the database. Throws StartError for a file that is not an index of this host.
  // `identity`: as IndexDatabase takes it.
  explicit FolderIndex(const std::string& path, const std::string& identity = {});

  IndexDatabase& database() { return database_; }
  IndexRows& rows() { return rows_; }
  IndexState& state() { return state_; }
  NodeStore& nodes() { return nodes_; }
  Intents& intents() { return intents_; }
  // What other programs have changed in it.
  RecentChanges& recent() { return recent_; }

  void add(const Node& node, std::string_view shownName);
  // Records where a node is now and how it is shown.
  void place(std::string_view ulid, std::string_view parent, std::string_view diskName,
             std::string_view shownName);
  // Records the fingerprint of `node`, and of a file its new size and date, with a new version.
  void update(const Node& node);
  // Removes a node and all below it; returns the folders among them.
  std::vector<std::string> remove(std::string_view ulid);

 private:
  IndexDatabase database_;
  IndexRows rows_;
  IndexState state_;
  NodeStore nodes_;
  Intents intents_;
  RecentChanges recent_;
};

}  // namespace tulo::host
