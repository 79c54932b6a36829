#include "service/replica/GatheringLog.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "tests/service/support/ReplicaCopy.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class GatheringLogTest : public ::testing::Test {
 protected:
  TemporaryDirectory directory;
};

void setNumber(Replica& replica, const std::string& key, std::int64_t number) {
  replica.write(Durability::eventual,
                [&](ReplicaWriter& writer) { meta::set(writer, key, number); });
}

// More than the writer keeps in memory, so that a part of it goes to the log before the rest.
void setMuch(ReplicaWriter& writer, const std::string& prefix) {
  for (int i = 0; i < 6000; ++i)
    meta::set(writer, prefix + std::to_string(i), std::string(4000, 'x'));
}

TEST_F(GatheringLogTest, ACommitIsInTheLogFileWhenItReturns) {
  Replica replica(directory.path());
  for (int i = 1; i <= 3; ++i) {
    setNumber(replica, "small", i);
    EXPECT_EQ(ReplicaCopy(directory.path()).number("small"), i);
    replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
      setMuch(writer, std::to_string(i) + ".");
      meta::set(writer, "large", i);
    });
    EXPECT_EQ(ReplicaCopy(directory.path()).number("large"), i);
    // The log begins anew.
    EXPECT_TRUE(replica.checkpointStep());
  }
}

TEST_F(GatheringLogTest, WhatWasRolledBackLeavesNothingInTheLog) {
  Replica replica(directory.path());
  setNumber(replica, "before", 1);
  const auto fail = [](ReplicaWriter& writer) {
    setMuch(writer, "x.");
    meta::set(writer, "failed", 1);
    throw std::runtime_error("no");
  };
  EXPECT_THROW(replica.write(Durability::eventual, fail), std::runtime_error);
  EXPECT_EQ(ReplicaCopy(directory.path()).number("before"), 1);
  setNumber(replica, "after", 2);
  const ReplicaCopy copy(directory.path());
  EXPECT_EQ(copy.number("before"), 1);
  EXPECT_EQ(copy.number("after"), 2);
  EXPECT_EQ(copy.number("failed"), 0);
}

TEST_F(GatheringLogTest, ATransactionThatReachedTheLogInPartDoesNotCount) {
  Replica replica(directory.path());
  setNumber(replica, "first", 1);
  const std::string log = directory.file("replica.db-wal");
  const auto before = std::filesystem::file_size(log);
  replica.write(Durability::eventual, [](ReplicaWriter& writer) {
    for (int i = 0; i < 20; ++i)
      meta::set(writer, std::to_string(i), std::string(4000, 'x'));
    meta::set(writer, "second", 2);
  });
  const auto after = std::filesystem::file_size(log);
  ASSERT_GT(after, before + 20 * 4096);
  for (const auto size :
       {before + 1, before + 24, before + 4120, (before + after) / 2, after - 1}) {
    const ReplicaCopy copy(directory.path());
    std::filesystem::resize_file(copy.directory.file("replica.db-wal"), size);
    EXPECT_EQ(copy.number("first"), 1) << size;
    EXPECT_EQ(copy.number("second"), 0) << size;
  }
  EXPECT_EQ(ReplicaCopy(directory.path()).number("second"), 2);
}

}  // namespace
}  // namespace tulo::test
