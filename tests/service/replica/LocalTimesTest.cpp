#include "service/replica/LocalTimes.h"

#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

using LocalTimesTest = ReplicaFixture;

TEST_F(LocalTimesTest, AreNotedUntilTheyAreForgotten) {
  const NodeId one = add("one", "i:1");
  const NodeId two = add("two", "i:2");
  const auto noted = [&](NodeId id) {
    return read([&](ReplicaReader& reader) { return localTimes::isNoted(reader, id); });
  };
  EXPECT_FALSE(noted(one));
  write([&](ReplicaWriter& writer) {
    localTimes::note(writer, one);
    localTimes::note(writer, one);
  });
  EXPECT_TRUE(noted(one));
  EXPECT_FALSE(noted(two));
  write([&](ReplicaWriter& writer) { localTimes::forget(writer, one); });
  EXPECT_FALSE(noted(one));
}

}  // namespace
}  // namespace tulo::test
