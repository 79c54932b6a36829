#include "service/mount/Mount.h"

#include <gtest/gtest.h>

#include "service/mount/MountPoint.h"
#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class MountTest : public MountFixture {
 protected:
  std::string wordsAt(const std::string& path) {
    MountOptions how;
    how.mountPoint = path;
    how.name = "test";
    try {
      Mount(how, readOnlyParts());
    } catch (const MountError& error) {
      return error.what();
    }
    return {};
  }
};

TEST_F(MountTest, NothingIsMountedWhereThereIsNoFolder) {
  const std::string file = directory.file("file");
  writeFile(file, "x");
  EXPECT_EQ(wordsAt(file), "cannot mount at " + file + ": not a directory");
  const std::string missing = directory.file("missing");
  EXPECT_EQ(wordsAt(missing), "cannot mount at " + missing + ": No such file or directory");
}

}  // namespace
}  // namespace tulo::test
