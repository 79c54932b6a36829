#include "service/listing/Likeness.h"

#include "service/base/Time.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class LikenessTest : public WritingFixture {
 protected:
  Likeness of(const ItemRecord& item) { return likenessOf(*row(id), item, engine->store()); }

  // A file of the host, and what another item would have to be like.
  ItemRecord put(const std::string& contents, WallSeconds modified) {
    extension->put({"i:1", root(), "a", false, contents, 1, modified.time_since_epoch().count()});
    list();
    id = idOf("i:1");
    ItemRecord item;
    item.identifier = "i:2";
    item.filename = "a";
    item.kind = NodeKind::file;
    item.size = static_cast<std::int64_t>(contents.size());
    item.modified = modified;
    return item;
  }

  NodeId id = kNoNode;
  const WallSeconds now = secondsNow();
};

TEST_F(LikenessTest, AnotherSizeTimeOrKindIsAnother) {
  const ItemRecord item = put("hello", now - seconds(60));
  EXPECT_EQ(of(item), Likeness::same);
  ItemRecord other = item;
  ++other.size;
  EXPECT_EQ(of(other), Likeness::other);
  other = item;
  other.modified += seconds(1);
  EXPECT_EQ(of(other), Likeness::other);
  other = item;
  other.kind = NodeKind::folder;
  EXPECT_EQ(of(other), Likeness::other);
}

TEST_F(LikenessTest, WhatWasWrittenJustNowMayHaveBeenWrittenTwice) {
  const ItemRecord item = put("hello", now);
  EXPECT_EQ(of(item), Likeness::possible);
  readThrough(id);
  EXPECT_EQ(of(item), Likeness::possible);
}

TEST_F(LikenessTest, BytesThatCameAfterThatSecondAreThoseOfTheFile) {
  // Too soon as long as nothing is here.
  const ItemRecord item = put("hello", now - seconds(3));
  EXPECT_EQ(of(item), Likeness::possible);
  readThrough(id);
  EXPECT_EQ(of(item), Likeness::same);
}

TEST_F(LikenessTest, EmptyFilesAreTheSame) {
  const ItemRecord item = put("", now);
  EXPECT_EQ(of(item), Likeness::same);
}

}  // namespace
}  // namespace tulo::test
