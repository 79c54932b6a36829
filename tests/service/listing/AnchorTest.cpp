#include "service/listing/Anchor.h"

#include <gtest/gtest.h>

#include "tests/service/support/ScriptedExtension.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

TEST(AnchorTest, IsTheProvidersOwnOnceItWasAskedFor) {
  const TemporaryDirectory directory;
  Anchor anchor(std::make_shared<ScriptedExtension>(directory.path()));
  EXPECT_EQ(anchor.last(), "");
  anchor.ask();
  EXPECT_EQ(anchor.last(), "anchor");
  anchor.ask();
  EXPECT_EQ(anchor.last(), "anchor");
}

}  // namespace
}  // namespace tulo::test
