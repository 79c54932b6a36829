#include "service/replica/Replica.h"

namespace tulo {

namespace {

// Even opening the database takes some room on the disk.
const std::string& withSomeRoom(const std::string& directory, Reserve& reserve) {
  reserve.giveBackIfFull();
  return directory;
}

}  // namespace

Replica::Replica(const std::string& directory)
    : directory_(directory),
      reserve_(directory + "/reserve"),
      file_(withSomeRoom(directory, reserve_)),
      readers_(file_.path()),
      checkpoints_(file_.path()),
      writer_(file_.path()),
      commits_(writer_),
      forcer_(file_.path() + "-wal", [this] { return commits_.commits(); }) {
  checkpoints_.count(writer_);
}

void Replica::write(Durability durability, const WriteFunction& function, Room room) {
  for (bool first = true;; first = false) {
    try {
      commit(function);
      break;
    } catch (const sqlite::DatabaseError& error) {
      if (!error.meansFullDisk()) throw;
      // Once all that is in the log is in the database too, the log begins anew in the same room.
      checkpoints_.demand();
      if (room == Room::ordinary) throw;
      if (first) {
        emptyLog();
      } else if (!makeRoom()) {
        throw;
      }
    }
  }
  if (durability == Durability::durable) synchronize();
}

void Replica::commit(const WriteFunction& function) try {
  commits_.commit(function);
} catch (const sqlite::DatabaseError& error) {
  file_.suspect(error);
  throw;
}

void Replica::emptyLog() {
  try {
    checkpointStep();
  } catch (const sqlite::DatabaseError&) {
    // The database may have to grow, for which there is no room either.
  }
}

}  // namespace tulo
