#include "service/replica/Numbers.h"

#include <stdexcept>

#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class NumbersTest : public ReplicaFixture {
 protected:
  NodeId node() {
    NodeId id;
    write([&](ReplicaWriter& writer) { id = writer.numbers().node(); });
    return id;
  }
};

TEST_F(NumbersTest, AreGivenOnceAlsoAcrossOpenings) {
  const NodeId first = node();
  EXPECT_GE(first, kFirstNode);
  EXPECT_GT(node(), first);
  const NodeId last = node();
  // What was reserved and not given is wasted.
  ReplicaWriter another(directory.file("replica.db"));
  EXPECT_GT(another.numbers().node(), last);
}

TEST_F(NumbersTest, ARollBackTakesTheReservationBackToo) {
  NodeId lost;
  EXPECT_THROW(write([&](ReplicaWriter& writer) {
                 // A block of its own, which the transaction reserves.
                 writer.numbers().forget();
                 lost = writer.numbers().node();
                 throw std::runtime_error("no");
               }),
               std::runtime_error);
  EXPECT_EQ(node(), lost);
  EXPECT_GT(node(), lost);
}

TEST_F(NumbersTest, ChangesAreNumberedInTheirOrder) {
  write([](ReplicaWriter& writer) {
    const std::int64_t first = writer.numbers().sequence();
    EXPECT_EQ(writer.numbers().sequence(), first + 1);
  });
}

TEST_F(NumbersTest, ContentsBelowANumberAreSkipped) {
  write([](ReplicaWriter& writer) {
    const ContentId first = writer.numbers().content();
    writer.numbers().skipContents(ContentId(first.number() + 1'000'000));
    EXPECT_GE(writer.numbers().content(), ContentId(first.number() + 1'000'000));
    // Never backwards.
    const ContentId now = writer.numbers().content();
    writer.numbers().skipContents(ContentId(1));
    EXPECT_GT(writer.numbers().content(), now);
  });
}

}  // namespace
}  // namespace tulo::test
