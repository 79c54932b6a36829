// Where each row of the index is on the disk, and by what it is recognised: the table `host_nodes`.
//
// Threads: not thread-safe; the account guards it. Errors: sqlite::DatabaseError.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "host/folder/Node.h"
#include "host/index/IndexDatabase.h"

namespace tulo::host {

class NodeStore {
 public:
  // What a new database needs for it.
  static const std::string_view tables;

  // The database must outlive the object.
  explicit NodeStore(IndexDatabase& database) : database_(database) {}

  std::optional<Node> node(std::string_view ulid);
  std::optional<Node> child(std::string_view parent, std::string_view diskName);
  std::vector<Node> children(std::string_view parent);
  // Those without a place.
  std::vector<Node> displaced();
  std::vector<Node> nodesWithInode(std::uint64_t inode);
  // Whether the node is `ancestor` or lies below it.
  bool isWithin(std::string_view ulid, std::string_view ancestor);

  void add(const Node& node);
  void place(std::string_view ulid, std::string_view parent, std::string_view diskName);
  // Frees a node's place for another one; it stays until it is placed or removed.
  void displace(std::string_view ulid);
  void setFingerprint(std::string_view ulid, const Fingerprint& fingerprint);
  void remove(std::string_view ulid);
  void removeChildren(std::string_view parent);

 private:
  IndexDatabase& database_;
};

}  // namespace tulo::host
