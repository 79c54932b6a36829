#include "service/replica/Numbers.h"

#include <string>

#include "service/replica/Meta.h"
#include "service/replica/ReplicaWriter.h"
#include "service/replica/Sql.h"

namespace tulo {

namespace {

constexpr std::uint64_t kReservation = 4096;

std::uint64_t firstFree(ReplicaWriter& writer, const char* key) {
  sqlite::Statement& read =
      sqlOf(writer).cached("SELECT value FROM meta WHERE key=CAST(? AS TEXT)").bind(key);
  sqlite::StatementUse use(read);
  if (!read.step()) {
    throw sqlite::DatabaseError(SQLITE_CORRUPT, "replica: no " + std::string(key));
  }
  return static_cast<std::uint64_t>(read.integer(0));
}

}  // namespace

std::uint64_t Numbers::take(Block& block) {
  if (block.next == block.end) {
    block.next = firstFree(writer_, block.key);
    block.end = block.next + kReservation;
    meta::set(writer_, block.key, static_cast<std::int64_t>(block.end));
  }
  return block.next++;
}

void Numbers::skipContents(ContentId first) {
  contents_.next = contents_.end = 0;
  sqlOf(writer_)
      .cached("UPDATE meta SET value=max(value,?) WHERE key='next_content'")
      .bind(first)
      .run();
}

std::int64_t Numbers::sequence() {
  if (lastSequence_ == 0) {
    lastSequence_ = sqlOf(writer_).integer("SELECT coalesce(max(sequence),0) FROM pending");
  }
  return ++lastSequence_;
}

void Numbers::forget() {
  nodes_.next = nodes_.end = 0;
  contents_.next = contents_.end = 0;
}

}  // namespace tulo
