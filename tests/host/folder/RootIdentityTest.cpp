#include "host/folder/RootIdentity.h"

#include "host/base/HostError.h"
#include "tests/host/folder/FolderFixture.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class RootIdentityTest : public FolderTest {
 protected:
  // As a host would that starts now.
  void require(const std::string& path) {
    const ServedFolder folder(path, EntryStat(), log_);
    requireSameRoot(index_, folder, "primary");
  }
};

TEST_F(RootIdentityTest, TheSameFolderIsRecognised) {
  require(root_);
  makeFile("a");
  tree_.scanAll();
  EXPECT_NO_THROW(require(root_));
}

TEST_F(RootIdentityTest, AFolderElsewhereIsAnotherOne) {
  require(root_);
  fs::create_directory(directory_.file("other"));
  EXPECT_THROW(require(directory_.file("other")), StartError);
}

TEST_F(RootIdentityTest, AnEmptyFolderInThePlaceOfAFullOneIsAMountPoint) {
  makeFile("a");
  require(root_);
  tree_.scanAll();
  fs::rename(root_, directory_.file("aside"));
  fs::create_directory(root_);
  EXPECT_THROW(require(root_), StartError);
}

TEST_F(RootIdentityTest, WhereNothingIsKnownNothingCanBeLost) {
  require(root_);
  fs::rename(root_, directory_.file("aside"));
  fs::create_directory(root_);
  EXPECT_NO_THROW(require(root_));
}

TEST_F(RootIdentityTest, ARestoredFolderWithFilesIsAccepted) {
  makeFile("a");
  require(root_);
  tree_.scanAll();
  fs::rename(root_, directory_.file("aside"));
  fs::create_directory(root_);
  makeFile("a");
  EXPECT_NO_THROW(require(root_));
}

}  // namespace
}  // namespace tulo::host
