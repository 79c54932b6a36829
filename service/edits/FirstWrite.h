// What has to be done before the first byte of a file changes: the journal says that the contents
// are dirty, and contents that are on their way to the host are left alone for a copy of them.
//
// The three steps are taken in their order, with the file's lock held exclusively. Killed in
// between, the service has the contents from before.
//
// Threads: one object for one thread.
// Errors: DatabaseError; ContentError with ESTALE when the file is gone, with EIO when what is to
// be kept of the contents is not here.
#pragma once

#include <optional>
#include <string>

#include "platform/linux/FileDescriptor.h"
#include "service/edits/FileParts.h"

namespace tulo {

class FirstWrite {
 public:
  // Without `keepContents` the file is emptied, so nothing of it has to be here.
  FirstWrite(const FileParts& parts, NodeId node, bool keepContents);

  // Finds out which contents are to be written: those that the node has, or new ones.
  void reserve();
  // Opens them; new ones are made, as a copy if the bytes are to stay.
  FileDescriptor openContents();
  // From now on the contents are the node's, and the host's no longer.
  void note();

  ContentId content() const { return content_; }

  // Whether all that would be noted down is there already, as it is of a new file.
  static bool isDone(ReplicaReader& reader, const Node& node);

 private:
  void reserve(ReplicaWriter& writer);
  void note(ReplicaWriter& writer, WallTime due);

  const FileParts& parts_;
  const NodeId node_;
  const bool keepContents_;
  // Emptying a file is one of the ways to make room.
  const Room room_;
  ContentId content_ = kNoContent;
  ContentId copied_ = kNoContent;
  std::optional<IncomingContent> incoming_;
  std::string name_;
  bool wasDurable_ = false;
};

}  // namespace tulo
