#include "service/replica/IncomingContent.h"

#include <gtest/gtest.h>

#include <optional>

#include "service/replica/ContentStore.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

TEST(IncomingContentTest, IsOnItsWayForAsLongAsItLives) {
  const TemporaryDirectory directory;
  ContentStore store(directory.path(), directory.path(), CacheLimits());
  EXPECT_FALSE(store.incoming().has(ContentId(3)));
  std::optional<IncomingContent> incoming(std::in_place, store, ContentId(3));
  EXPECT_EQ(incoming->number(), ContentId(3));
  EXPECT_TRUE(store.incoming().has(ContentId(3)));
  EXPECT_FALSE(store.incoming().has(ContentId(4)));
  incoming.reset();
  EXPECT_FALSE(store.incoming().has(ContentId(3)));
}

}  // namespace
}  // namespace tulo::test
