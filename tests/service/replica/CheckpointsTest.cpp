#include "service/replica/Checkpoints.h"

#include <filesystem>

#include "service/replica/Meta.h"
#include "service/replica/ReplicaFile.h"
#include "service/replica/ReplicaWriter.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

class CheckpointsTest : public ::testing::Test {
 protected:
  CheckpointsTest() { checkpoints.count(writer); }

  std::uintmax_t databaseSize() const { return std::filesystem::file_size(file.path()); }

  TemporaryDirectory directory;
  ReplicaFile file{directory.path()};
  Checkpoints checkpoints{file.path()};
  ReplicaWriter writer{file.path()};
};

TEST_F(CheckpointsTest, AShortLogStaysAsItIs) {
  meta::set(writer, "key", std::string(100'000, 'x'));
  const auto before = databaseSize();
  EXPECT_FALSE(checkpoints.step());
  EXPECT_EQ(databaseSize(), before);
}

TEST_F(CheckpointsTest, ALongLogGoesIntoTheDatabaseOnce) {
  meta::set(writer, "key", std::string(20'000'000, 'x'));
  const auto before = databaseSize();
  EXPECT_TRUE(checkpoints.step());
  EXPECT_GT(databaseSize(), before + 20'000'000);
  EXPECT_FALSE(checkpoints.step());
}

TEST_F(CheckpointsTest, AShortLogGoesIntoTheDatabaseOnDemand) {
  meta::set(writer, "key", std::string(100'000, 'x'));
  const auto before = databaseSize();
  checkpoints.demand();
  EXPECT_TRUE(checkpoints.step());
  EXPECT_GT(databaseSize(), before);
  EXPECT_FALSE(checkpoints.step());
}

}  // namespace
}  // namespace tulo::test
