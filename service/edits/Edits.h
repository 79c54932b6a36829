// What programs change in the tree: names, folders, attributes. Each call is one transaction, in
// the replica and its journal when it returns; the host hears of it later.
//
// Threads: every member may be called on any thread.
// Errors: an errno, 0 when all went well; DatabaseError where the replica cannot be written.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include "service/edits/LocalFiles.h"
#include "service/edits/LocalNames.h"
#include "service/kernel/OpenFiles.h"
#include "service/replica/Journal.h"
#include "service/replica/Replica.h"

namespace tulo {

struct EditResult {
  int error = 0;
  Entry entry;
};

class Edits {
 public:
  Edits(Replica& replica, LocalFiles& files, ContentStore& store, OpenFiles& openFiles,
        LocalNames localNames);

  EditResult makeFile(NodeId folder, std::string_view name, int mode);
  // The same for a program that goes on with it: the contents are open in LocalFiles afterwards,
  // until LocalFiles::released.
  EditResult makeOpenFile(NodeId folder, std::string_view name, int mode);
  EditResult makeFolder(NodeId folder, std::string_view name, int mode = 0700);
  EditResult makeLink(NodeId folder, std::string_view name, std::string_view target);
  // EINVAL for what is no symbolic link.
  int readLink(NodeId link, std::string& target);

  int removeFile(NodeId folder, std::string_view name);
  // The folder must have been listed just now: what is not known to be empty is not removed.
  int removeFolder(NodeId folder, std::string_view name);

  // `flags`: RENAME_NOREPLACE or RENAME_EXCHANGE. `moved` is the node that moved.
  int rename(NodeId folder, std::string_view name, NodeId newFolder, std::string_view newName,
             unsigned flags);

  // Kept here; the host knows no such thing.
  int setMode(NodeId node, int mode);
  // 0 when a program may write to the file.
  int mayWrite(NodeId node);

  const LocalNames& localNames() const { return localNames_; }

 private:
  int rename(ReplicaWriter& writer, NodeId folder, std::string_view name, NodeId newFolder,
             std::string_view newName, unsigned flags);
  using Step = std::function<void(ReplicaWriter&, const Node&)>;
  EditResult make(NodeId folder, Node node, const Step& added);
  EditResult makeFile(NodeId folder, std::string_view name, int mode, bool open);
  int removeOne(ReplicaWriter& writer, const Node& node);
  bool noteChange(ReplicaWriter& writer, const Node& node);
  void place(ReplicaWriter& writer, Node node, NodeId folder, std::string_view name);
  void makeKnown(ReplicaWriter& writer, NodeId node);
  bool staysHere(ReplicaWriter& writer, NodeId folder, std::string_view name);
  bool staysHere(ReplicaWriter& writer, const Node& folder, std::string_view name);
  void forceReplacement(NodeId folder, std::string_view name, NodeId newFolder,
                        std::string_view newName);
  void touchFolder(ReplicaWriter& writer, NodeId folder);
  std::int64_t due() const { return files_.now() + files_.quiet(); }

  Replica& replica_;
  LocalFiles& files_;
  ContentStore& store_;
  OpenFiles& openFiles_;
  const LocalNames localNames_;
};

// Whether the item stays on this machine under that name in that folder.
bool staysLocal(ReplicaWriter& writer, const LocalNames& names, NodeId folder,
                std::string_view name);

}  // namespace tulo
