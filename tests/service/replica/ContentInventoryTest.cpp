#include "service/replica/ContentInventory.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "service/errors/ContentError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class ContentInventoryTest : public ::testing::Test {
 protected:
  TemporaryDirectory directory;
  ContentStore store{directory.path(), directory.path(), CacheLimits()};
};

TEST_F(ContentInventoryTest, FindsWhatCarriesAName) {
  store.create(ContentId(3), "a.txt");
  store.create(ContentId(700), "b.txt");
  store.forgetName(ContentId(700));
  const auto found = inventory::named(store);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].content, ContentId(3));
  EXPECT_EQ(found[0].path, store.path(ContentId(3)));
  EXPECT_EQ(found[0].name, "a.txt");
}

TEST_F(ContentInventoryTest, KnowsTheHighestNumberNamedOrNot) {
  EXPECT_EQ(inventory::highestNumber(store), kNoContent);
  store.create(ContentId(3), "a.txt");
  store.create(ContentId(700), "b.txt");
  store.forgetName(ContentId(700));
  EXPECT_EQ(inventory::highestNumber(store), ContentId(700));
}

TEST_F(ContentInventoryTest, AFolderThatCannotBeReadIsAnError) {
  std::filesystem::remove_all(store.directory());
  EXPECT_THROW(inventory::named(store), ContentError);
  EXPECT_THROW(inventory::highestNumber(store), ContentError);
}

}  // namespace
}  // namespace tulo::test
