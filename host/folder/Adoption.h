// What an entry is that has come to a place on the disk where the index knows of nothing: one that
// a write had announced, one that was elsewhere before, or a new one.
//
// Threads: not thread-safe; the account guards it. Errors: OperationError, sqlite::DatabaseError.
#pragma once

#include <optional>
#include <string>

#include "host/base/EntryStat.h"
#include "host/folder/FolderIndex.h"
#include "host/folder/Node.h"
#include "host/folder/Places.h"
#include "host/index/Ulid.h"

namespace tulo::host {

class Adoption {
 public:
  // What has become of the index.
  struct Adopted {
    std::string ulid;
    // The folder that had to give way, whose new place is still to be seen.
    std::optional<std::string> displaced;
  };

  // All must outlive the object.
  Adoption(FolderIndex& index, Places& places, UlidSource& ulids)
      : index_(index), places_(places), ulids_(ulids) {}

  // Whether there may be intents that an earlier run has left.
  void expectIntents(bool expects) { expectsIntents_ = expects; }

  Adopted adopt(const std::string& parent, const std::string& name, const EntryStat& stat);

 private:
  std::optional<Adopted> completeIntent(const std::string& parent, const std::string& name,
                                        const EntryStat& stat);
  std::optional<Node> movedNode(const EntryStat& stat);
  bool hasLeft(const Node& node);
  Adopted moveHere(Node node, const std::string& parent, const std::string& name,
                   const EntryStat& stat);
  std::optional<std::string> detach(const std::string& ulid, const std::string& ancestor);
  void updateIfChanged(Node& node, const EntryStat& stat);

  FolderIndex& index_;
  Places& places_;
  UlidSource& ulids_;
  bool expectsIntents_ = false;
};

}  // namespace tulo::host
