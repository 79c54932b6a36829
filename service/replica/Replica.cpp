#include "service/replica/Replica.h"

#include <fcntl.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "service/replica/GatheringLog.h"
#include "service/replica/Schema.h"

namespace tulo {

namespace {

// Each keeps a few descriptors and a cache of its own; more than a few at once are rare.
constexpr std::size_t kIdleReaders = 6;

// Some 16 MB.
constexpr int kManyFrames = 4000;

void configure(sqlite::Connection& database) {
  database.execute(
      "PRAGMA journal_mode=WAL;"
      "PRAGMA synchronous=NORMAL;"
      "PRAGMA journal_size_limit=67108864;");
}

void create(const std::string& path) {
  sqlite::Connection database(path, sqlite::Connection::Mode::create, gatheringVfs());
  configure(database);
  schema::bringUpToDate(database);
}

// Beside the database as long as it is not known whether it is whole.
std::string suspicion(const std::string& directory) {
  return directory + "/replica.db.suspect";
}

bool isSuspect(const std::string& directory) {
  std::error_code error;
  return std::filesystem::exists(suspicion(directory), error);
}

// Reads all of it, so it is done only where there is reason to.
void checkWhole(const std::string& path) {
  sqlite::Connection database(path, sqlite::Connection::Mode::create);
  sqlite::Statement check = database.prepare("PRAGMA quick_check(1)");
  if (!check.step() || check.text(0) != "ok") {
    throw sqlite::DatabaseError(SQLITE_CORRUPT, "replica.db is damaged");
  }
}

// What is there and is no file cannot be a database either.
bool isNoFile(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error) && !std::filesystem::is_regular_file(path, error);
}

}  // namespace

Replica::Replica(const std::string& directory)
    : directory_(directory), path_(directory + "/replica.db"), reserve_(directory + "/reserve") {
  reserve_.giveBackIfFull();
  openOrSetAside();
  writer_ = std::make_unique<ReplicaWriter>(path_);
  writer_->connection().countLogFrames(logFrames_);
}

Replica::~Replica() {
  {
    std::lock_guard lock(syncMutex_);
    ending_ = true;
    forcerWanted_.notify_all();
  }
  if (forcer_.joinable()) forcer_.join();
}

void Replica::openOrSetAside() {
  try {
    create(path_);
    if (isSuspect(directory_)) checkWhole(path_);
  } catch (const sqlite::DatabaseError& error) {
    if (!error.meansDamage() && !isNoFile(path_)) throw;
    setAside_ = path_ + ".damaged-" + std::to_string(std::time(nullptr));
    for (const char* suffix : {"", "-wal", "-shm"}) {
      std::error_code ignored;
      std::filesystem::rename(path_ + suffix, setAside_ + suffix, ignored);
    }
    create(path_);
  }
  std::error_code ignored;
  std::filesystem::remove(suspicion(directory_), ignored);
}

std::unique_ptr<ReplicaReader> Replica::takeReader() {
  {
    std::lock_guard lock(readersMutex_);
    if (!idleReaders_.empty()) {
      auto reader = std::move(idleReaders_.back());
      idleReaders_.pop_back();
      return reader;
    }
  }
  return std::make_unique<ReplicaReader>(path_);
}

void Replica::giveBack(std::unique_ptr<ReplicaReader> reader) {
  std::lock_guard lock(readersMutex_);
  if (idleReaders_.size() < kIdleReaders) idleReaders_.push_back(std::move(reader));
}

bool Replica::tryLead() {
  std::lock_guard lock(queueMutex_);
  if (leading_) return false;
  leading_ = true;
  return true;
}

void Replica::endLead() {
  std::lock_guard lock(queueMutex_);
  leading_ = false;
  queueChanged_.notify_all();
}

void Replica::suspect(const sqlite::DatabaseError& error) const {
  if (error.meansDamage()) std::ofstream(suspicion(directory_));
}

void Replica::rethrow(const std::exception_ptr& failure) const {
  try {
    std::rethrow_exception(failure);
  } catch (const sqlite::DatabaseError& error) {
    suspect(error);
    throw;
  }
}

void Replica::write(Durability durability, const WriteFunction& function, Room room) {
  for (bool first = true;; first = false) {
    try {
      commit(function);
      break;
    } catch (const sqlite::DatabaseError& error) {
      if (!error.meansFullDisk()) throw;
      // Once all that is in the log is in the database too, the log begins anew in the same room.
      logFrames_ = kManyFrames;
      if (room == Room::ordinary || !(first ? emptyLog() : makeRoom())) throw;
    }
  }
  if (durability == Durability::durable) synchronize();
}

bool Replica::emptyLog() {
  try {
    checkpointStep();
  } catch (const sqlite::DatabaseError&) {
    // The database may have to grow, for which there is no room either.
  }
  return true;
}

bool Replica::makeRoom() {
  return reserve_.giveBack();
}

void Replica::commit(const WriteFunction& function) {
  Pending mine{&function, nullptr};
  std::unique_lock lock(queueMutex_);
  queue_.push_back(&mine);
  queueChanged_.wait(lock, [&] { return mine.done || !leading_; });
  if (!mine.done) {
    leading_ = true;
    std::deque<Pending*> batch;
    batch.swap(queue_);
    lock.unlock();
    commitBatch(batch);
    lock.lock();
    for (Pending* pending : batch)
      pending->done = true;
    leading_ = false;
    queueChanged_.notify_all();
  }
  lock.unlock();
  if (mine.error) rethrow(mine.error);
}

// A commit is in the log file when it returns; what is missing for a power cut is that the file is
// on the disk. That is done outside the transaction, so nobody else's commit waits for the disk.
void Replica::synchronize() {
  std::unique_lock lock(syncMutex_);
  // A turn that began before now may have missed what was committed last.
  awaitTurn(lock, syncsBegun_ + 1);
}

std::uint64_t Replica::beginSynchronize() {
  std::lock_guard lock(syncMutex_);
  turnWanted_ = syncsBegun_ + 1;
  if (!forcer_.joinable()) forcer_ = std::thread([this] { forceLoop(); });
  forcerWanted_.notify_one();
  return turnWanted_;
}

void Replica::endSynchronize(std::uint64_t turn) {
  std::unique_lock lock(syncMutex_);
  awaitTurn(lock, turn);
}

// Whoever finds nobody at it takes the turn.
void Replica::awaitTurn(std::unique_lock<std::mutex>& lock, std::uint64_t wanted) {
  syncChanged_.wait(lock, [&] { return !syncing_ || syncsDone_ >= wanted; });
  if (syncsDone_ < wanted) takeTurn(lock);
  if (syncFailed_ < wanted) return;
  throw sqlite::DatabaseError(SQLITE_IOERR, "replica.db: cannot force it to the disk");
}

void Replica::takeTurn(std::unique_lock<std::mutex>& lock) {
  syncing_ = true;
  const std::uint64_t turn = ++syncsBegun_;
  const std::uint64_t commits = commits_;
  // The file stays the same one for as long as the writer's connection is open.
  if (!log_) log_ = FileDescriptor(::open((path_ + "-wal").c_str(), O_RDONLY | O_CLOEXEC));
  lock.unlock();
  const bool failed = !log_ || ::fdatasync(log_.get()) != 0;
  lock.lock();
  syncing_ = false;
  syncsDone_ = turn;
  // The disk says it once only, and it concerns all who share the turn.
  if (failed) syncFailed_ = turn;
  commitsSynced_ = commits;
  syncChanged_.notify_all();
  if (turnWanted_ > syncsBegun_) forcerWanted_.notify_one();
}

void Replica::forceLoop() {
  std::unique_lock lock(syncMutex_);
  for (;;) {
    forcerWanted_.wait(lock,
                       [this] { return ending_ || (turnWanted_ > syncsBegun_ && !syncing_); });
    if (ending_) return;
    takeTurn(lock);
  }
}

bool Replica::checkpointStep() {
  if (logFrames_ < kManyFrames) return false;
  std::lock_guard lock(checkpointMutex_);
  if (!checkpointer_)
    checkpointer_ = std::make_unique<sqlite::Connection>(path_, sqlite::Connection::Mode::create,
                                                         gatheringVfs());
  // Counted anew by the next commit, which begins the log again if nobody reads it any more.
  logFrames_ = 0;
  checkpointer_->checkpoint();
  return true;
}

void Replica::synchronizeCommitted() {
  if (commitsSynced_ != commits_) synchronize();
}

void Replica::runOne(Pending& pending, bool alone) {
  sqlite::Connection& database = writer_->connection();
  // Alone in its transaction, it can be rolled back with it.
  if (alone) return (*pending.function)(*writer_);
  database.cached("SAVEPOINT one").run();
  try {
    (*pending.function)(*writer_);
    database.cached("RELEASE one").run();
  } catch (...) {
    pending.error = std::current_exception();
    // A full disk may have ended the whole transaction already.
    if (!database.inTransaction()) throw;
    database.execute("ROLLBACK TO one; RELEASE one");
    writer_->forgetReservations();
  }
}

void Replica::commitBatch(std::deque<Pending*>& batch) {
  try {
    writer_->connection().cached("BEGIN IMMEDIATE").run();
    for (Pending* pending : batch)
      runOne(*pending, batch.size() == 1);
    writer_->connection().cached("COMMIT").run();
    ++commits_;
  } catch (...) {
    writer_->forgetReservations();
    for (Pending* pending : batch) {
      if (!pending->error) pending->error = std::current_exception();
    }
    try {
      if (writer_->connection().inTransaction()) writer_->connection().execute("ROLLBACK");
    } catch (const sqlite::DatabaseError&) {
      // The error that led here is the one to report.
    }
  }
}

}  // namespace tulo
