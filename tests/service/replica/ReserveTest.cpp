#include "service/replica/Reserve.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "service/replica/Meta.h"
#include "service/replica/Replica.h"
#include "tests/service/support/ReplicaSql.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class ReserveTest : public ::testing::Test {
 protected:
  std::int64_t blocksOf() const {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_blocks * 512 : 0;
  }

  TemporaryDirectory directory;
  const std::string path = directory.file("reserve");
};

TEST_F(ReserveTest, IsReallyOnTheDisk) {
  Reserve reserve(path);
  EXPECT_EQ(reserve.size(), 0);
  EXPECT_TRUE(reserve.refillStep());
  EXPECT_EQ(reserve.size(), Reserve::kWhole);
  EXPECT_GE(blocksOf(), Reserve::kWhole);
  EXPECT_FALSE(reserve.refillStep());
}

TEST_F(ReserveTest, GoesBackInPiecesAndIsMadeAgain) {
  Reserve reserve(path);
  EXPECT_FALSE(reserve.giveBack());
  reserve.refillStep();
  EXPECT_TRUE(reserve.giveBack());
  EXPECT_EQ(reserve.size(), Reserve::kWhole - Reserve::kPiece);
  EXPECT_LT(blocksOf(), Reserve::kWhole);
  while (reserve.giveBack()) {
  }
  EXPECT_EQ(reserve.size(), 0);
  EXPECT_EQ(blocksOf(), 0);
  EXPECT_TRUE(reserve.refillStep());
}

TEST_F(ReserveTest, OutlivesTheServiceUnlessItWasCopiedWithoutItsBytes) {
  Reserve(path).refillStep();
  EXPECT_EQ(Reserve(path).size(), Reserve::kWhole);
  std::filesystem::resize_file(path, 0);
  std::filesystem::resize_file(path, Reserve::kWhole);
  Reserve hollow(path);
  EXPECT_EQ(hollow.size(), 0);
  EXPECT_TRUE(hollow.refillStep());
  EXPECT_GE(blocksOf(), Reserve::kWhole);
}

TEST_F(ReserveTest, IsLeftAloneWhereThereIsRoom) {
  Reserve reserve(path);
  reserve.refillStep();
  reserve.giveBackIfFull();
  EXPECT_EQ(reserve.size(), Reserve::kWhole);
}

// A database that may not grow looks like a disk without room.
class FullReplicaTest : public ReserveTest {
 protected:
  FullReplicaTest() {
    replica.refillReserveStep();
    replica.write(Durability::eventual,
                  [](ReplicaWriter& writer) { runSql(writer, "PRAGMA max_page_count=1"); });
  }

  int write(Room room, int failures) {
    int runs = 0;
    try {
      replica.write(
          Durability::eventual,
          [&](ReplicaWriter& writer) {
            if (++runs > failures) runSql(writer, "PRAGMA max_page_count=1000000");
            meta::set(writer, "large", std::string(100'000, 'x'));
          },
          room);
      written = true;
    } catch (const sqlite::DatabaseError& error) {
      EXPECT_TRUE(error.meansFullDisk()) << error.what();
    }
    return runs;
  }

  std::int64_t left() const { return static_cast<std::int64_t>(std::filesystem::file_size(path)); }

  Replica replica{directory.path()};
  bool written = false;
};

TEST_F(FullReplicaTest, AnOrdinaryChangeFailsAndLeavesTheReserve) {
  EXPECT_EQ(write(Room::ordinary, 1), 1);
  EXPECT_FALSE(written);
  EXPECT_EQ(left(), Reserve::kWhole);
}

TEST_F(FullReplicaTest, TheRoomOfTheLogComesBeforeTheReserve) {
  EXPECT_EQ(write(Room::fromReserve, 1), 2);
  EXPECT_TRUE(written);
  EXPECT_EQ(left(), Reserve::kWhole);
}

TEST_F(FullReplicaTest, AChangeThatLeadsToRoomTakesAsMuchAsItNeeds) {
  EXPECT_EQ(write(Room::fromReserve, 3), 4);
  EXPECT_TRUE(written);
  EXPECT_EQ(left(), Reserve::kWhole - 2 * Reserve::kPiece);
}

TEST_F(FullReplicaTest, WithoutAReserveItFailsInTheEnd) {
  const int pieces = static_cast<int>(Reserve::kWhole / Reserve::kPiece);
  EXPECT_EQ(write(Room::fromReserve, 1000), 2 + pieces);
  EXPECT_FALSE(written);
  EXPECT_EQ(left(), 0);
}

}  // namespace
}  // namespace tulo::test
