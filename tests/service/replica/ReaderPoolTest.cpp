#include "service/replica/ReaderPool.h"

#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class ReaderPoolTest : public ReplicaFixture {
 protected:
  ReaderPool pool{directory.file("replica.db")};
};

TEST_F(ReaderPoolTest, WhoReadsAtTheSameTimeHasASessionOfHisOwn) {
  ReaderPool::Lease one(pool);
  ReaderPool::Lease two(pool);
  EXPECT_NE(&one.reader(), &two.reader());
  EXPECT_TRUE(one.reader().node(kRootNode));
  EXPECT_TRUE(two.reader().node(kRootNode));
}

TEST_F(ReaderPoolTest, ASessionThatWasGivenBackIsTakenAgain) {
  const ReplicaReader* first = nullptr;
  {
    ReaderPool::Lease lease(pool);
    first = &lease.reader();
  }
  ReaderPool::Lease lease(pool);
  EXPECT_EQ(&lease.reader(), first);
}

TEST_F(ReaderPoolTest, AnIdleSessionSeesWhatWasCommittedMeanwhile) {
  { const ReaderPool::Lease lease(pool); }
  const NodeId file = add("file", "i:1");
  ReaderPool::Lease lease(pool);
  EXPECT_TRUE(lease.reader().node(file));
}

}  // namespace
}  // namespace tulo::test
