#include "bridge/HostBridgeError.h"

#include <gtest/gtest.h>

namespace tulo {
namespace {

TEST(HostBridgeErrorTest, FailedCarriesAMessage) {
  const auto error = HostBridgeError::failed("no reply");
  EXPECT_EQ(error.which(), HostBridgeError::Case::failed);
  EXPECT_EQ(error.message(), "no reply");
  EXPECT_FALSE(error.isUnreachable());
}

TEST(HostBridgeErrorTest, RemoteCarriesKindAndMessage) {
  const auto error = HostBridgeError::remote("quota", "full");
  EXPECT_EQ(error.which(), HostBridgeError::Case::remote);
  EXPECT_EQ(error.kind(), "quota");
  EXPECT_EQ(error.message(), "full");
  EXPECT_FALSE(error.isUnreachable());
}

TEST(HostBridgeErrorTest, UnreachableCarriesNothing) {
  const auto error = HostBridgeError::unreachable();
  EXPECT_EQ(error.which(), HostBridgeError::Case::unreachable);
  EXPECT_TRUE(error.isUnreachable());
}

TEST(HostBridgeErrorTest, DescribesItselfByCaseAndPayload) {
  EXPECT_EQ(HostBridgeError::failed("no reply").description(), "failed(\"no reply\")");
  EXPECT_EQ(HostBridgeError::remote("quota", "full").description(),
            "remote(kind: \"quota\", message: \"full\")");
  EXPECT_EQ(HostBridgeError::unreachable().description(), "unreachable");
}

TEST(HostBridgeErrorTest, EscapesNothingInItsDescription) {
  const std::string awkward = "say \"a\\b\"\n\xff";
  EXPECT_EQ(HostBridgeError::failed(awkward).description(), "failed(\"" + awkward + "\")");
  EXPECT_EQ(HostBridgeError::remote(awkward, "").description(),
            "remote(kind: \"" + awkward + "\", message: \"\")");
}

TEST(HostBridgeErrorTest, IsAPlainValue) {
  auto error = HostBridgeError::failed("one");
  const auto copy = error;
  error = HostBridgeError::unreachable();
  EXPECT_EQ(copy.message(), "one");
  EXPECT_TRUE(error.isUnreachable());
}

}  // namespace
}  // namespace tulo
