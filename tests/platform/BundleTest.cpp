#include "platform/Bundle.h"

#include <gtest/gtest.h>

#include "platform/Deployment.h"
#include "platform/linux/SystemSide.h"

namespace tulo::platform {
namespace {

constexpr const char* versionKey = "CFBundleShortVersionString";

class BundleTest : public testing::Test {
 protected:
  void TearDown() override {
    setMainBundleInfo({{{versionKey, std::string(deployment::version)}}});
  }
};

TEST_F(BundleTest, HoldsTheProjectsVersionByDefault) {
  EXPECT_EQ(mainBundleInfoString(versionKey), deployment::version);
  EXPECT_EQ(mainBundleInfoString("CFBundleName"), std::nullopt);
}

TEST_F(BundleTest, HoldsWhatTheSystemSideSets) {
  setMainBundleInfo({{{versionKey, "9.8"}, {"empty", ""}}});
  EXPECT_EQ(mainBundleInfoString(versionKey), "9.8");
  EXPECT_EQ(mainBundleInfoString("empty"), "");
}

TEST_F(BundleTest, HasNoValueWithoutADictionaryOrAKey) {
  setMainBundleInfo({{{"other", "1"}}});
  EXPECT_EQ(mainBundleInfoString(versionKey), std::nullopt);
  setMainBundleInfo(std::nullopt);
  EXPECT_EQ(mainBundleInfoString(versionKey), std::nullopt);
}

}  // namespace
}  // namespace tulo::platform
