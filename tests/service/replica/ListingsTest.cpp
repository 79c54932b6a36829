#include "service/replica/Listings.h"

#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

using ListingsTest = ReplicaFixture;

TEST_F(ListingsTest, AFolderStaysListedAndNothingEqualsItsListing) {
  const NodeId one = addFolder("one");
  const NodeId two = addFolder("two");
  const NodeId three = addFolder("three");
  write([&](ReplicaWriter& writer) {
    for (const NodeId folder : {one, two, three})
      writer.setListed(folder, 7, "digest");
    listings::forget(writer, one);
    listings::forget(writer, "f:two");
    listings::forget(writer, "");
  });
  EXPECT_EQ(row(one)->listed, 7U);
  EXPECT_EQ(row(one)->digest, "");
  EXPECT_EQ(row(two)->digest, "");
  EXPECT_EQ(row(three)->digest, "digest");
}

}  // namespace
}  // namespace tulo::test
