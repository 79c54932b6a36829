#include "service/replica/Meta.h"

#include "tests/service/support/ReplicaFixture.h"

namespace tulo::test {
namespace {

using MetaTest = ReplicaFixture;

TEST_F(MetaTest, KeepsNumbersAndTextsByKey) {
  write([](ReplicaWriter& writer) {
    meta::set(writer, "number", std::int64_t{-7});
    meta::set(writer, "text", "old");
    meta::set(writer, "text", std::string_view("n\0w", 3));
  });
  read([](ReplicaReader& reader) {
    EXPECT_EQ(meta::integer(reader, "number"), -7);
    EXPECT_EQ(meta::text(reader, "text"), std::string("n\0w", 3));
    EXPECT_EQ(meta::integer(reader, "missing"), 0);
    EXPECT_EQ(meta::text(reader, "missing"), "");
  });
  write([](ReplicaWriter& writer) { meta::remove(writer, "text"); });
  EXPECT_EQ(read([](ReplicaReader& reader) { return meta::text(reader, "text"); }), "");
}

}  // namespace
}  // namespace tulo::test
