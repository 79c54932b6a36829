// Gives files and folders another name, another folder, or another's place.
//
// Threads: every member may be called on any thread.
// Errors: an errno, 0 when all went well; DatabaseError where the replica cannot be written.
#pragma once

#include <string>
#include <string_view>

#include "service/edits/EditParts.h"
#include "service/edits/Removals.h"

namespace tulo {

// `flags`: RENAME_NOREPLACE or RENAME_EXCHANGE. The names are those of the request.
struct Move {
  NodeId folder;
  std::string_view name;
  NodeId newFolder;
  std::string_view newName;
  unsigned flags = 0;
};

class Renames {
 public:
  Renames(const EditParts& parts, const Removals& removals) : parts_(parts), removals_(removals) {}

  int rename(const Move& move);

 private:
  int carryOut(ReplicaWriter& writer, const Move& move);
  int replace(ReplicaWriter& writer, const Node& node, const Node& target);
  // What something is called here, and by the provider.
  struct Name {
    std::string shown;
    std::string filename;
  };
  static Name nameAfter(ReplicaReader& reader, const Move& move, const Node& node,
                        const Node& newParent, const Node* target);
  void place(ReplicaWriter& writer, Node node, NodeId folder, const Name& name);
  bool noteChange(ReplicaWriter& writer, const Node& node);
  void makeKnown(ReplicaWriter& writer, NodeId node);
  void forceReplacement(const Move& move);

  const EditParts& parts_;
  const Removals& removals_;
};

}  // namespace tulo
