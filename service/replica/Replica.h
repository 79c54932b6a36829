// The truth of the local side: one SQLite database for each domain (docs/replica.md).
//
// Reading takes a session with a connection of its own, so readers never wait for one another or
// for the writer. (A brief one may borrow the writer's while nobody writes.) Writing goes through
// one connection; the writers that come while a transaction runs share the next one (group commit).
//
// When a change is safe: every change is committed to the log file before the call that made it
// returns, so it outlives the end of the process, kill -9 included. It outlives a power cut once
// the log was forced to the disk: before fsync(2) of a file or a folder returns, and otherwise in
// the background about a second later. POSIX promises no more of close, rename and mkdir, so none
// of them waits for the disk. Those who wait at the same time share one turn (synchronize).
//
// Threads: every member may be called on any thread.
// Lifetime: sessions end before the replica does.
// Errors: DatabaseError; what a writing function throws rolls back its own part and comes out of
// the call that passed it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/FileDescriptor.h"
#include "service/replica/Node.h"
#include "service/replica/Reserve.h"
#include "sqlite/Connection.h"

namespace tulo {

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

// Reads of the replica. Every function is a statement of its own: two calls may see two states.
class ReplicaReader {
 public:
  explicit ReplicaReader(const std::string& path);

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
  sqlite::Connection& connection() { return *database_; }

 protected:
  explicit ReplicaReader(std::unique_ptr<sqlite::Connection> database);

 private:
  std::unique_ptr<sqlite::Connection> database_;
  sqlite::Statement entry_;
  sqlite::Statement node_;
  sqlite::Statement open_;
  sqlite::Statement byIdentifier_;
  sqlite::Statement folder_;
  sqlite::Statement child_;
  sqlite::Statement children_;
  sqlite::Statement childNodes_;
  sqlite::Statement childNamed_;
};

// Changes of the replica, inside one transaction, which the reading half sees as they are made.
// Changing only the row: telling the kernel is the caller's part.
class ReplicaWriter : public ReplicaReader {
 public:
  explicit ReplicaWriter(const std::string& path);

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
  // Another name in the same folder.
  void setName(NodeId id, const std::string& name, const std::string& filename);
  // Gives a free name for a moment, so that names can be exchanged.
  void parkName(NodeId id);
  // Moves the row to a fresh number, which is returned; the old one is not used again.
  NodeId renumber(NodeId id);
  void setListed(NodeId folder, std::uint64_t generation, std::string_view digest);
  void setListedGeneration(NodeId folder, std::uint64_t generation);
  void setModified(NodeId id, const FileTime& modified);
  void setError(NodeId id, std::string_view error);
  void setLastUsed(NodeId id, WallSeconds when);
  void setPinned(NodeId id, bool pinned);
  void setKept(NodeId id, bool kept);
  // The item of the host's that the node is; empty: none.
  void setIdentifier(NodeId id, std::string_view identifier);
  void clearIdentifier(NodeId id) { setIdentifier(id, {}); }
  // The host has no such item any more, nor a listing of it.
  void clearItem(NodeId id);
  void setContentVersion(NodeId id, std::string_view version);
  void setVersions(NodeId id, std::string_view contentVersion, std::string_view metadataVersion);
  void setMode(NodeId id, int mode);
  // What was written to a file.
  void setWritten(NodeId id, std::int64_t size, std::int64_t blocks, const FileTime& modified);
  // The time of a folder in which something changed; not written when it has it.
  void touch(NodeId id, const FileTime& modified);
  // Out of the tree at once, but not to be purged: its change tells when it may be.
  void takeOut(NodeId id);
  void remove(NodeId id);

  // Numbers changes in the order in which they were made.
  std::int64_t nextSequence();

  ContentId nextContent();
  // Numbers below `first` are not given out.
  void skipContents(ContentId first);

 private:
  friend class Replica;

  std::uint64_t nextNumber(std::string_view key, std::uint64_t& next, std::uint64_t& reserved);
  NodeId numberFor(const Node& node);
  void forgetReservations();

  sqlite::Statement insert_;
  sqlite::Statement insertMany_;
  sqlite::Statement update_;
  std::int64_t lastSequence_ = 0;
  std::uint64_t nextNode_ = 0;
  std::uint64_t reservedNodes_ = 0;
  std::uint64_t nextContent_ = 0;
  std::uint64_t reservedContents_ = 0;
};

enum class Durability {
  eventual,  // survives the end of the process at once, a power cut about a second later
  durable,   // survives a power cut when the call returns
};

// What becomes of a change for which the disk has no room.
enum class Room {
  ordinary,     // it fails
  fromReserve,  // it is made once more with what was kept for that: it leads to more room
};

class Replica {
 public:
  using ReadFunction = std::function<void(ReplicaReader&)>;
  using WriteFunction = std::function<void(ReplicaWriter&)>;

  // Opens or creates the database in the directory, which must exist. A damaged database is set
  // aside under another name, and a new one begun.
  explicit Replica(const std::string& directory);
  ~Replica();
  Replica(const Replica&) = delete;
  Replica& operator=(const Replica&) = delete;

  // Runs the function on a reader of its own.
  template <typename Function>
  auto read(Function&& function) try {
    ReaderLease lease(*this);
    return function(*lease.reader);
  } catch (const sqlite::DatabaseError& error) {
    suspect(error);
    throw;
  }

  // The same for a few rows at most: on the writer's connection, whose pages are in memory, as long
  // as nobody writes. The function must not write, nor wait for anything.
  template <typename Function>
  auto readBriefly(Function&& function) try {
    const WriterLease lease(*this);
    if (!lease.held) return read(std::forward<Function>(function));
    return function(static_cast<ReplicaReader&>(*writer_));
  } catch (const sqlite::DatabaseError& error) {
    suspect(error);
    throw;
  }

  // Runs the function in a transaction and returns once it is committed. With Room::fromReserve the
  // function may run several times, of which only the last counts.
  void write(Durability durability, const WriteFunction& function, Room room = Room::ordinary);
  // Gives back some of what is kept for a full disk. False when nothing is left of it.
  bool makeRoom();
  // A step of the housekeeping; true when there was something to do.
  bool refillReserveStep() { return reserve_.refillStep(); }
  // Forces everything committed so far to the disk. Callers at the same time share one turn of it.
  void synchronize();
  // The same in two steps: the first has another thread begin, so that the caller can wait for
  // something else on the disk meanwhile; the second waits for the end.
  std::uint64_t beginSynchronize();
  void endSynchronize(std::uint64_t turn);
  // The same, unless that has been done since the last commit.
  void synchronizeCommitted();

  // Moves what was committed from the log into the database file, if it is much: that waits for the
  // disk, which no writer shall. A step of the housekeeping; true when there was something to do.
  bool checkpointStep();

  const std::string& directory() const { return directory_; }
  // Where a damaged database was set aside at opening; empty otherwise.
  const std::string& setAside() const { return setAside_; }

 private:
  struct Pending {
    const WriteFunction* function;
    std::exception_ptr error;
    bool done = false;
  };

  struct ReaderLease {
    explicit ReaderLease(Replica& owner) : replica(owner), reader(owner.takeReader()) {}
    ~ReaderLease() { replica.giveBack(std::move(reader)); }
    ReaderLease(const ReaderLease&) = delete;
    ReaderLease& operator=(const ReaderLease&) = delete;
    Replica& replica;
    std::unique_ptr<ReplicaReader> reader;
  };

  // The writer's connection, if nobody has it.
  struct WriterLease {
    explicit WriterLease(Replica& owner) : replica(owner), held(owner.tryLead()) {}
    ~WriterLease() {
      if (held) replica.endLead();
    }
    WriterLease(const WriterLease&) = delete;
    WriterLease& operator=(const WriterLease&) = delete;
    Replica& replica;
    const bool held;
  };

  // The lock is the one of the turns.
  void awaitTurn(std::unique_lock<std::mutex>& lock, std::uint64_t wanted);
  void takeTurn(std::unique_lock<std::mutex>& lock);
  void forceLoop();
  bool tryLead();
  void endLead();
  std::unique_ptr<ReplicaReader> takeReader();
  void giveBack(std::unique_ptr<ReplicaReader> reader);
  void openOrSetAside();
  // The next start looks whether the database is whole.
  void suspect(const sqlite::DatabaseError& error) const;
  [[noreturn]] void rethrow(const std::exception_ptr& failure) const;
  void commit(const WriteFunction& function);
  // As far as the disk has room for it; always true.
  bool emptyLog();
  void commitBatch(std::deque<Pending*>& batch);
  void runOne(Pending& pending, bool alone);

  std::string directory_;
  std::string path_;
  std::string setAside_;
  Reserve reserve_;

  // Guards the idle readers only; never held during a query.
  std::mutex readersMutex_;
  std::vector<std::unique_ptr<ReplicaReader>> idleReaders_;

  // Guards the queue and the leader flag; the leader lets go of it while the transaction runs.
  std::mutex queueMutex_;
  std::condition_variable queueChanged_;
  std::deque<Pending*> queue_;
  bool leading_ = false;

  std::atomic<int> logFrames_ = 0;
  // Guards the connection for checkpoints; held during one, taken alone.
  std::mutex checkpointMutex_;
  std::unique_ptr<sqlite::Connection> checkpointer_;

  // Only the current leader touches it.
  std::unique_ptr<ReplicaWriter> writer_;

  std::atomic<std::uint64_t> commits_ = 0;

  // Guards the turns of forcing the log to the disk; let go of meanwhile.
  std::mutex syncMutex_;
  std::condition_variable syncChanged_;
  std::condition_variable forcerWanted_;
  std::uint64_t turnWanted_ = 0;
  bool ending_ = false;
  std::thread forcer_;
  std::uint64_t syncsBegun_ = 0;
  std::uint64_t syncsDone_ = 0;
  std::uint64_t syncFailed_ = 0;
  std::atomic<std::uint64_t> commitsSynced_ = 0;
  bool syncing_ = false;
  FileDescriptor log_;
};

}  // namespace tulo
