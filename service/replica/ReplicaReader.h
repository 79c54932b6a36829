// A session that reads the replica: the rows of nodes.
//
// Every function is a statement of its own: two calls may see two states, unless the session is
// one that writes. What is asked less often is in functions beside this, which take the session.
//
// Threads: a session belongs to one thread at a time.
// Errors: DatabaseError.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/replica/Node.h"

namespace tulo {

namespace sqlite {
class Connection;
}

// A child as a directory listing needs it. The name is valid during the call only.
using EntryVisitor = std::function<bool(const Entry& entry, std::string_view name)>;

// What a folder says of itself and of one name in it.
struct NameLookup {
  bool folderExists = false;
  std::uint64_t listed = 0;
  std::optional<Entry> entry;
};

// What opening a file needs to know.
struct OpenLookup {
  NodeKind kind = NodeKind::file;
  ContentState state = ContentState::dataless;
  NodeId parent = kNoNode;
  ContentId content = kNoContent;
  std::int64_t size = 0;
};

class ReplicaReader {
 public:
  explicit ReplicaReader(const std::string& path);
  ~ReplicaReader();
  ReplicaReader(const ReplicaReader&) = delete;
  ReplicaReader& operator=(const ReplicaReader&) = delete;

  std::optional<Entry> entry(NodeId id);
  std::optional<Node> node(NodeId id);
  std::optional<OpenLookup> openLookup(NodeId id);
  std::optional<Node> nodeFor(std::string_view identifier);
  NameLookup lookup(NodeId folder, std::string_view name);
  std::optional<NodeId> childNamed(NodeId folder, std::string_view name);
  // Whether so many are in the folder.
  bool hasAtLeast(NodeId folder, std::int64_t count);
  // The generation that the folder was listed for; nothing when it is gone.
  std::optional<std::uint64_t> listed(NodeId folder);
  // The children after the given number, by number, until the visitor returns false.
  void children(NodeId folder, NodeId after, const EntryVisitor& visitor);
  // All children with all columns.
  std::vector<Node> childNodes(NodeId folder);
  // Path components from the root down; empty for the root and for what is not in the tree.
  std::vector<std::string> path(NodeId id);
  std::vector<Node> failedNodes(std::size_t limit);

 protected:
  explicit ReplicaReader(std::unique_ptr<sqlite::Connection> database);

 private:
  friend sqlite::Connection& sqlOf(ReplicaReader& session);

  // What is asked for with nearly every request stays prepared.
  struct Statements;

  std::unique_ptr<sqlite::Connection> database_;
  std::unique_ptr<Statements> statements_;
};

}  // namespace tulo
