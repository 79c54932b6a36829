// The index database of one account, from the side that writes it.
//
// The tables `folders` and `items` are what the extension reads; the tables that begin with `host_`
// are this host's own: where each row is on the disk, and by what it recognises a file again.
//
// Threads: not thread-safe; the account guards it.
// Errors: OperationError. Changes are in one transaction from the first of them until commit().
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/Files.h"
#include "host/index/Database.h"

namespace tulo::host {

// The identifier that stands for an account's top level in Node::parent.
inline constexpr std::string_view rootUlid;

// A row together with its place on the disk.
struct Node {
  std::string ulid;
  std::string parent;
  std::string diskName;
  bool isFolder = false;
  std::uint64_t inode = 0;
  std::int64_t birthNs = 0;
  std::int64_t size = 0;
  std::int64_t mtimeNs = 0;

  // Takes over what identifies the contents of a file, or a folder.
  void setFingerprint(const EntryStat& stat);
  // The same file with the same contents, as far as can be told without reading it.
  bool hasFingerprint(const EntryStat& stat) const;
};

// What the extension sees of a file or a folder, of that which a request may need.
struct Row {
  std::string name;
  std::int64_t version = 0;
  std::int64_t size = 0;
  std::optional<std::int64_t> lockedBy;
};

// What a write was about to make of a file when the host ended.
struct Intent {
  std::string ulid;
  std::string parent;
  std::string diskName;
  std::string shownName;
};

struct Counts {
  std::int64_t folders = 0;
  std::int64_t items = 0;
};

class IndexStore {
 public:
  // Opens or creates the database. Throws StartError for a file that is not an index of this host.
  explicit IndexStore(const std::string& path);
  ~IndexStore();
  IndexStore(const IndexStore&) = delete;
  IndexStore& operator=(const IndexStore&) = delete;

  std::optional<Node> node(std::string_view ulid);
  std::optional<Node> child(std::string_view parent, std::string_view diskName);
  std::vector<Node> children(std::string_view parent);
  std::vector<Node> nodesWithInode(std::uint64_t inode);
  Row row(const Node& node);
  // The sibling folder that is shown under exactly this name.
  std::optional<Node> folderShownAs(std::string_view parent, std::string_view name);
  // Whether the node is `ancestor` or lies below it.
  bool isWithin(std::string_view ulid, std::string_view ancestor);
  bool hasLockBelow(std::string_view folder);
  std::int64_t totalSize();
  Counts counts();
  std::string greatestUlid();

  void insert(const Node& node, std::string_view shownName);
  // Records where a node is now and how it is shown.
  void place(std::string_view ulid, std::string_view parent, std::string_view diskName,
             std::string_view shownName);
  // Frees a node's place for another one; its row stays until it is placed or removed.
  void displace(std::string_view ulid);
  // Records the fingerprint of `node`, and of a file its new size and date, with a new version.
  void updateContents(const Node& node);
  // Records a fingerprint whose contents are those already known.
  void updateFingerprint(const Node& node);
  // Removes a node and all below it; returns the folders among them.
  std::vector<std::string> remove(std::string_view ulid);
  void setLock(std::string_view ulid, std::optional<std::int64_t> user);

  // Announces, durably with the next commit, that the file or folder of this fingerprint is about
  // to become `node` shown as `shownName`: after a crash in between it is recognised by that.
  void intend(const Node& node, std::string_view shownName);
  std::optional<Intent> intent(const EntryStat& stat);
  void forgetIntents();

  std::optional<std::string> state(std::string_view key);
  void setState(std::string_view key, std::string_view value);

  // The number of changes that the next commit() makes durable.
  std::size_t pending() const { return pending_; }
  void commit();
  void rollback() noexcept;
  // Moves the write-ahead log into the database file.
  void checkpoint();

 private:
  struct Statements;

  void prepareSchema(const std::string& path);
  void change();
  std::vector<Node> readNodes(Statement& statement);
  std::optional<Node> readNode(Statement& statement);

  Database db_;
  std::unique_ptr<Statements> statements_;
  std::size_t pending_ = 0;
};

}  // namespace tulo::host
