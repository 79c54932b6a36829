#include "service/mount/MountOptions.h"

#include <gtest/gtest.h>

namespace tulo::test {
namespace {

bool has(const std::string& text, const std::string& option) {
  return (',' + text + ',').find(',' + option + ',') != std::string::npos;
}

TEST(MountOptionsTest, AMountIsReadOnlyUnlessItIsSaidOtherwise) {
  EXPECT_TRUE(has(optionText({.mountPoint = "/mnt", .name = "a"}), "ro"));
  EXPECT_FALSE(has(optionText({.mountPoint = "/mnt", .name = "a"}), "rw"));
  EXPECT_TRUE(has(optionText({.mountPoint = "/mnt", .name = "a", .readWrite = true}), "rw"));
  EXPECT_FALSE(has(optionText({.mountPoint = "/mnt", .name = "a", .readWrite = true}), "ro"));
}

TEST(MountOptionsTest, NoMountHasDevicesOrForeignRights) {
  for (const char* option : {"nosuid", "nodev", "default_permissions", "subtype=tulo"})
    EXPECT_TRUE(has(optionText({.mountPoint = "/mnt", .name = "a"}), option)) << option;
}

TEST(MountOptionsTest, OthersSeeItOnlyWhereThatIsWanted) {
  EXPECT_FALSE(has(optionText({.mountPoint = "/mnt", .name = "a"}), "allow_other"));
  EXPECT_TRUE(
      has(optionText({.mountPoint = "/mnt", .name = "a", .allowOther = true}), "allow_other"));
}

TEST(MountOptionsTest, ANameEndsNoOption) {
  const std::string text = optionText({.mountPoint = "/mnt", .name = "a,suid\\b c"});
  EXPECT_TRUE(has(text, "fsname=a_suid_b c")) << text;
  EXPECT_FALSE(has(text, "suid")) << text;
}

}  // namespace
}  // namespace tulo::test
