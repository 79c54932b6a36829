// A session that changes the replica, inside one transaction, and sees what it changed: the rows of
// nodes. Changing only the row: telling the kernel is the caller's part.
//
// Threads: one transaction has the session at a time (GroupCommit).
// Errors: DatabaseError.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "service/replica/ReplicaReader.h"

namespace tulo {

class Numbers;

class ReplicaWriter : public ReplicaReader {
 public:
  explicit ReplicaWriter(const std::string& path);
  ~ReplicaWriter();

  // Gives the node its number; everything else is taken from the argument. Returns kNoNode and
  // leaves all as it was if the name or the identifier is taken.
  NodeId insert(const Node& node);
  // The same for several, of which up to kManyNodes at a time take less than each by itself. Each
  // gets its number, or kNoNode.
  static constexpr std::size_t kManyNodes = 16;
  void insertMany(std::vector<Node>& nodes);
  // Writes the columns that a provider's item fills, and the place in the tree.
  void update(const Node& node);
  // Takes the node out of the tree; its row stays until purged, so that an item that turns up
  // elsewhere keeps its number and contents.
  void detach(NodeId id, WallSeconds now);
  // Takes everything directly inside a folder out of the tree.
  void detachChildren(NodeId folder, WallSeconds now);
  // Out of the tree at once, but not to be purged: its change tells when it may be.
  void takeOut(NodeId id);
  // Another name in the same folder.
  void setName(NodeId id, const std::string& name, const std::string& filename);
  // Gives a free name for a moment, so that names can be exchanged.
  void parkName(NodeId id);
  // Moves the row to a fresh number, which is returned; the old one is not used again.
  NodeId renumber(NodeId id);
  void remove(NodeId id);

  // The item of the host's that the node is.
  void setIdentifier(NodeId id, std::string_view identifier);
  void clearIdentifier(NodeId id);
  // The host has no such item any more, nor a listing of it.
  void clearItem(NodeId id);
  void setContentVersion(NodeId id, std::string_view version);
  void setVersions(NodeId id, std::string_view contentVersion, std::string_view metadataVersion);
  void setListed(NodeId folder, std::uint64_t generation, std::string_view digest);
  void setListedGeneration(NodeId folder, std::uint64_t generation);

  void setModified(NodeId id, const FileTime& modified);
  // The time of a folder in which something changed; not written when it has it.
  void touch(NodeId id, const FileTime& modified);
  // What was written to a file.
  void setWritten(NodeId id, std::int64_t size, std::int64_t blocks, const FileTime& modified);
  void setLastUsed(NodeId id, WallSeconds when);
  void setMode(NodeId id, int mode);
  void setError(NodeId id, std::string_view error);

  // The numbers that are given out.
  Numbers& numbers() { return *numbers_; }

 private:
  // What inserts and updates many rows stays prepared.
  struct Statements;

  std::unique_ptr<Numbers> numbers_;
  std::unique_ptr<Statements> statements_;
};

}  // namespace tulo
