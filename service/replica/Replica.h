// The truth of the local side: one SQLite database for each domain (docs/replica.md).
//
// Reading takes a session with a connection of its own (ReaderPool). A brief one may borrow the
// writer's while nobody writes. Writing goes through one connection; the writers that come while a
// transaction runs share the next one (GroupCommit).
//
// When a change is safe: every change is committed to the log file before the call that made it
// returns, so it outlives the end of the process, kill -9 included. It outlives a power cut once
// the log was forced to the disk (LogForcer): before fsync(2) of a file or a folder returns, and
// otherwise in the background about a second later. POSIX promises no more of close, rename and
// mkdir, so none of them waits for the disk.
//
// Threads: every member may be called on any thread.
// Lifetime: sessions end before the replica does.
// Errors: DatabaseError; what a writing function throws rolls back its own part and comes out of
// the call that passed it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "service/replica/Checkpoints.h"
#include "service/replica/GroupCommit.h"
#include "service/replica/LogForcer.h"
#include "service/replica/ReaderPool.h"
#include "service/replica/ReplicaFile.h"
#include "service/replica/ReplicaReader.h"
#include "service/replica/ReplicaWriter.h"
#include "service/replica/Reserve.h"
#include "sqlite/DatabaseError.h"

namespace tulo {

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
  using WriteFunction = GroupCommit::Function;

  // Opens or creates the database in the directory, which must exist. A damaged database is set
  // aside under another name, and a new one begun.
  explicit Replica(const std::string& directory);
  Replica(const Replica&) = delete;
  Replica& operator=(const Replica&) = delete;

  // Runs the function on a reader of its own.
  template <typename Function>
  auto read(Function&& function) try {
    ReaderPool::Lease lease(readers_);
    return function(lease.reader());
  } catch (const sqlite::DatabaseError& error) {
    file_.suspect(error);
    throw;
  }

  // The same for a few rows at most: on the writer's connection, whose pages are in memory, as long
  // as nobody writes. The function must not write, nor wait for anything.
  template <typename Function>
  auto readBriefly(Function&& function) try {
    GroupCommit::Lease lease(commits_);
    ReplicaReader* reader = lease.reader();
    return reader ? function(*reader) : read(std::forward<Function>(function));
  } catch (const sqlite::DatabaseError& error) {
    file_.suspect(error);
    throw;
  }

  // Runs the function in a transaction and returns once it is committed. With Room::fromReserve the
  // function may run several times, of which only the last counts.
  void write(Durability durability, const WriteFunction& function, Room room = Room::ordinary);
  // Gives back some of what is kept for a full disk. False when nothing is left of it.
  bool makeRoom() { return reserve_.giveBack(); }
  // A step of the housekeeping; true when there was something to do.
  bool refillReserveStep() { return reserve_.refillStep(); }

  // Forces everything committed so far to the disk. Callers at the same time share one turn of it.
  void synchronize() { forcer_.force(); }
  // The same in two steps: the first has another thread begin, so that the caller can wait for
  // something else on the disk meanwhile; the second waits for the end.
  std::uint64_t beginSynchronize() { return forcer_.begin(); }
  void endSynchronize(std::uint64_t turn) { forcer_.end(turn); }
  // The same, unless that has been done since the last commit.
  void synchronizeCommitted() { forcer_.forceIfCommitted(); }

  // Moves what was committed from the log into the database file, if it is much. A step of the
  // housekeeping; true when there was something to do.
  bool checkpointStep() { return checkpoints_.step(); }

  const std::string& directory() const { return directory_; }
  // Where a damaged database was set aside at opening; empty otherwise.
  const std::string& setAside() const { return file_.setAside(); }

 private:
  void commit(const WriteFunction& function);
  void emptyLog();

  const std::string directory_;
  Reserve reserve_;
  ReplicaFile file_;
  ReaderPool readers_;
  Checkpoints checkpoints_;
  ReplicaWriter writer_;
  GroupCommit commits_;
  LogForcer forcer_;
};

}  // namespace tulo
