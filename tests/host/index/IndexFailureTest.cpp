#include "host/index/IndexFailure.h"

#include <gtest/gtest.h>

#include <string>

namespace tulo::host {
namespace {

TEST(IndexFailureTest, AFullDiskIsSaidToBeFull) {
  const OperationError error = indexFailure(sqlite::DatabaseError(SQLITE_FULL, "state.db: full"));
  EXPECT_EQ(error.kind(), "disk_full");
  EXPECT_EQ(std::string(error.what()), "index: state.db: full");
  EXPECT_EQ(indexFailure(sqlite::DatabaseError(SQLITE_CORRUPT, "x")).kind(), "io");
}

TEST(IndexFailureTest, OnlyWhatSqliteCouldNotDoIsTurnedIntoOne) {
  EXPECT_EQ(withIndex([] { return 7; }), 7);
  EXPECT_THROW(withIndex([] { throw sqlite::DatabaseError(SQLITE_IOERR, "x"); }), OperationError);
  EXPECT_THROW(withIndex([] { throw BadRequest("x"); }), BadRequest);
}

}  // namespace
}  // namespace tulo::host
