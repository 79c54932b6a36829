// The numbers that the replica gives to nodes, contents and changes: none is ever given twice.
//
// They are reserved in blocks, of which a crash wastes some.
//
// Threads: those of the writing session.
// Errors: DatabaseError.
#pragma once

#include <cstdint>

#include "service/replica/Ids.h"

namespace tulo {

class ReplicaWriter;

class Numbers {
 public:
  // The writer outlives this.
  explicit Numbers(ReplicaWriter& writer) : writer_(writer) {}

  NodeId node() { return NodeId(take(nodes_)); }
  ContentId content() { return ContentId(take(contents_)); }
  // Numbers of contents below `first` are not given out.
  void skipContents(ContentId first);
  // Changes are numbered in the order in which they were made.
  std::int64_t sequence();

  // The transaction that reserved them may have been rolled back.
  void forget();

 private:
  struct Block {
    const char* key;
    std::uint64_t next = 0;
    std::uint64_t end = 0;
  };

  std::uint64_t take(Block& block);

  ReplicaWriter& writer_;
  Block nodes_{"next_node"};
  Block contents_{"next_content"};
  std::int64_t lastSequence_ = 0;
};

}  // namespace tulo
