#include "service/Replica.h"

#include <ctime>
#include <filesystem>

#include "service/Schema.h"

namespace tulo {

namespace {

constexpr std::size_t kIdleReaders = 16;

void configure(Connection& database) {
  database.execute(
      "PRAGMA journal_mode=WAL;"
      "PRAGMA synchronous=NORMAL;"
      "PRAGMA wal_autocheckpoint=4000;"
      "PRAGMA journal_size_limit=67108864;");
}

void create(const std::string& path) {
  Connection database(path, Connection::Mode::create);
  configure(database);
  schema::bringUpToDate(database);
}

bool meansDamage(const DatabaseError& error) {
  return error.code() == SQLITE_CORRUPT || error.code() == SQLITE_NOTADB;
}

}  // namespace

Replica::Replica(const std::string& directory)
    : directory_(directory), path_(directory + "/replica.db") {
  openOrSetAside();
  writer_ = std::make_unique<ReplicaWriter>(path_);
}

Replica::~Replica() = default;

void Replica::openOrSetAside() {
  try {
    create(path_);
  } catch (const DatabaseError& error) {
    if (!meansDamage(error)) throw;
    setAside_ = path_ + ".damaged-" + std::to_string(std::time(nullptr));
    for (const char* suffix : {"", "-wal", "-shm"}) {
      std::error_code ignored;
      std::filesystem::rename(path_ + suffix, setAside_ + suffix, ignored);
    }
    create(path_);
  }
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

void Replica::write(Durability durability, const WriteFunction& function) {
  Pending mine{&function, durability, nullptr};
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
  if (mine.error) std::rethrow_exception(mine.error);
}

void Replica::setSynchronous(Durability durability) {
  if (durability == synchronous_) return;
  writer_->connection().execute(durability == Durability::durable ? "PRAGMA synchronous=FULL"
                                                                  : "PRAGMA synchronous=NORMAL");
  synchronous_ = durability;
}

void Replica::runOne(Pending& pending) {
  writer_->connection().execute("SAVEPOINT one");
  try {
    (*pending.function)(*writer_);
    writer_->connection().execute("RELEASE one");
  } catch (...) {
    pending.error = std::current_exception();
    // A full disk may have ended the whole transaction already.
    if (!writer_->connection().inTransaction()) throw;
    writer_->connection().execute("ROLLBACK TO one; RELEASE one");
    writer_->forgetReservations();
  }
}

void Replica::commitBatch(std::deque<Pending*>& batch) {
  try {
    Durability durability = Durability::eventual;
    for (const Pending* pending : batch) {
      if (pending->durability == Durability::durable) durability = Durability::durable;
    }
    setSynchronous(durability);
    writer_->connection().execute("BEGIN IMMEDIATE");
    for (Pending* pending : batch)
      runOne(*pending);
    writer_->connection().execute("COMMIT");
  } catch (...) {
    writer_->forgetReservations();
    for (Pending* pending : batch) {
      if (!pending->error) pending->error = std::current_exception();
    }
    try {
      if (writer_->connection().inTransaction()) writer_->connection().execute("ROLLBACK");
    } catch (const DatabaseError&) {
      // The error that led here is the one to report.
    }
  }
}

}  // namespace tulo
