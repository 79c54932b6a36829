#include "service/replica/GroupCommit.h"

#include "service/replica/Numbers.h"
#include "service/replica/Sql.h"

namespace tulo {

bool GroupCommit::tryLead() {
  const MutexLock lock(mutex_);
  if (leading_) return false;
  leading_ = true;
  return true;
}

void GroupCommit::endLead() {
  const MutexLock lock(mutex_);
  leading_ = false;
  changed_.notifyAll();
}

void GroupCommit::commit(const Function& function) {
  Waiting mine{&function, nullptr};
  {
    MutexLock lock(mutex_);
    queue_.push_back(&mine);
    while (!mine.done && leading_)
      changed_.wait(lock);
    if (!mine.done) {
      leading_ = true;
      std::deque<Waiting*> batch;
      batch.swap(queue_);
      lock.unlock();
      runAll(batch);
      lock.lock();
      for (Waiting* waiting : batch)
        waiting->done = true;
      leading_ = false;
      changed_.notifyAll();
    }
  }
  if (mine.error) std::rethrow_exception(mine.error);
}

void GroupCommit::runOne(Waiting& waiting, bool alone) {
  sqlite::Connection& database = sqlOf(writer_);
  // Alone in its transaction, it can be rolled back with it.
  if (alone) return (*waiting.function)(writer_);
  database.cached("SAVEPOINT one").run();
  try {
    (*waiting.function)(writer_);
    database.cached("RELEASE one").run();
  } catch (...) {
    waiting.error = std::current_exception();
    // A full disk may have ended the whole transaction already.
    if (!database.inTransaction()) throw;
    database.execute("ROLLBACK TO one; RELEASE one");
    writer_.numbers().forget();
  }
}

void GroupCommit::runAll(std::deque<Waiting*>& batch) {
  try {
    sqlOf(writer_).cached("BEGIN IMMEDIATE").run();
    for (Waiting* waiting : batch)
      runOne(*waiting, batch.size() == 1);
    sqlOf(writer_).cached("COMMIT").run();
    ++commits_;
  } catch (...) {
    for (Waiting* waiting : batch) {
      if (!waiting->error) waiting->error = std::current_exception();
    }
    rollBack();
  }
}

void GroupCommit::rollBack() {
  writer_.numbers().forget();
  try {
    if (sqlOf(writer_).inTransaction()) sqlOf(writer_).execute("ROLLBACK");
  } catch (const sqlite::DatabaseError&) {
    // The error that led here is the one to report.
  }
}

}  // namespace tulo
