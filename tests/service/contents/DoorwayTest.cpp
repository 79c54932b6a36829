#include "service/contents/Doorway.h"

#include <gtest/gtest.h>

#include <future>

#include "tests/support/Eventually.h"

namespace tulo::test {
namespace {

TEST(DoorwayTest, IsOpenUntilItIsClosed) {
  Doorway door;
  EXPECT_TRUE(Doorway::Visit(door));
  door.close();
  EXPECT_FALSE(Doorway::Visit(door));
}

TEST(DoorwayTest, ClosingWaitsForWhoeverIsInside) {
  Doorway door;
  std::future<void> closed;
  {
    const Doorway::Visit first(door);
    const Doorway::Visit second(door);
    closed = std::async(std::launch::async, [&] { door.close(); });
    // Nobody comes in any more, although those inside have not left.
    EXPECT_TRUE(eventually([&] { return !Doorway::Visit(door); }));
    EXPECT_EQ(closed.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  }
  EXPECT_EQ(closed.wait_for(patience), std::future_status::ready);
}

TEST(DoorwayTest, MayBeClosedTwice) {
  Doorway door;
  door.close();
  door.close();
  EXPECT_FALSE(Doorway::Visit(door));
}

}  // namespace
}  // namespace tulo::test
