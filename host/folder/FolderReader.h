// What is in a folder on the disk, and which folders could not be read.
//
// A folder that cannot be read is no reason to believe anything of what is in it: it is remembered
// until somebody takes it, to read it again.
//
// Threads: not thread-safe; the account guards it. Errors: OperationError of the top folder alone,
// sqlite::DatabaseError.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/base/EntryStat.h"
#include "host/folder/Node.h"
#include "host/folder/NodeStore.h"
#include "host/folder/Places.h"
#include "host/folder/ServedFolder.h"
#include "platform/linux/FileDescriptor.h"

namespace tulo::host {

class FolderReader {
 public:
  using OpenedObserver = std::function<void(const std::string& ulid, int folder)>;

  struct Opened {
    FileDescriptor folder;
    std::vector<std::string> names;
  };

  struct Entry {
    // Otherwise nothing is known of it.
    bool isRead = false;
    // Of what is served.
    std::optional<EntryStat> stat;
  };

  // All must outlive the object.
  FolderReader(ServedFolder& folder, Places& places, NodeStore& nodes)
      : folder_(folder), places_(places), nodes_(nodes) {}

  // Called with each folder before it is read.
  void observe(OpenedObserver observer) { observer_ = std::move(observer); }

  // Nothing where it is not there, or cannot be read. Throws for the top folder.
  std::optional<Opened> read(const std::string& ulid);
  Entry entry(const std::string& parent, const Opened& opened, const std::string& name);
  Entry entry(const std::string& parent, const std::string& name);
  // Whether it is sure that nothing is in the node's place.
  bool isGone(const Node& node);

  bool hasUnread() const { return !unread_.empty(); }
  bool isUnread(const std::string& folder) const { return unread_.contains(folder); }
  std::set<std::string> takeUnread() { return std::exchange(unread_, {}); }
  void forget(const std::string& folder) { unread_.erase(folder); }

 private:
  Opened open(const std::string& ulid);
  // Does the reading in a folder; whether that went well.
  bool canRead(const std::string& folder, const std::function<void()>& reading);
  std::string shownName(const std::string& ulid);

  ServedFolder& folder_;
  Places& places_;
  NodeStore& nodes_;
  OpenedObserver observer_;
  std::set<std::string> unread_;
};

}  // namespace tulo::host
