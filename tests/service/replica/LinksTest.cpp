#include "service/replica/Links.h"

#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

class LinksTest : public ReplicaFixture {
 protected:
  std::optional<std::string> target(NodeId id) {
    return read([&](ReplicaReader& reader) { return links::target(reader, id); });
  }
};

TEST_F(LinksTest, LeadWhereTheyWereMadeToLead) {
  const NodeId link = add("link", "", kRootNode, NodeKind::link);
  const NodeId file = add("file", "i:1");
  write([&](ReplicaWriter& writer) { links::add(writer, link, "../some\xff where"); });
  EXPECT_EQ(target(link), "../some\xff where");
  EXPECT_EQ(target(file), std::nullopt);
}

TEST_F(LinksTest, GoWithTheirNode) {
  const NodeId link = add("link", "", kRootNode, NodeKind::link);
  write([&](ReplicaWriter& writer) {
    links::add(writer, link, "target");
    writer.remove(link);
  });
  EXPECT_EQ(target(link), std::nullopt);
}

}  // namespace
}  // namespace tulo::test
