#include "service/replica/AccountIdentity.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "sqlite/Connection.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

namespace fs = std::filesystem;

class AccountIdentityTest : public ::testing::Test {
 protected:
  std::string container(const std::string& name) {
    fs::create_directories(directory.file(name));
    return directory.file(name);
  }

  void identify(const std::string& container, const std::string& account) {
    sqlite::Connection index(container + "/state.db", sqlite::Connection::Mode::create);
    index.execute("CREATE TABLE host_identity(id TEXT); INSERT INTO host_identity VALUES('" +
                  account + "')");
  }

  AccountIdentity at(const std::string& container) { return identityAt(container, "state.db"); }

  TemporaryDirectory directory;
};

TEST_F(AccountIdentityTest, TheHostsWordDecidesWhereverTheContainerIs) {
  identify(container("a"), "ann");
  identify(container("b"), "bob");
  identify(container("c"), "ann");
  EXPECT_EQ(at(directory.file("a")).account, "ann");
  EXPECT_FALSE(areOfOneAccount(at(directory.file("a")), at(directory.file("b"))));
  EXPECT_TRUE(areOfOneAccount(at(directory.file("a")), at(directory.file("c"))));
}

TEST_F(AccountIdentityTest, WithoutAWordTheDirectoryDecides) {
  const AccountIdentity before = at(container("a"));
  container("b");
  EXPECT_FALSE(areOfOneAccount(before, at(directory.file("b"))));
  fs::rename(directory.file("a"), directory.file("moved"));
  EXPECT_TRUE(areOfOneAccount(before, at(directory.file("moved"))));
  fs::rename(directory.file("b"), directory.file("a"));
  EXPECT_FALSE(areOfOneAccount(before, at(directory.file("a")))) << "exchanged at the same path";
}

TEST_F(AccountIdentityTest, ADirectoryMadeAnewIsAnotherOne) {
  const AccountIdentity before = at(container("a"));
  fs::remove(directory.file("a"));
  EXPECT_FALSE(areOfOneAccount(before, at(container("a"))));
}

TEST_F(AccountIdentityTest, AContainerThatIsNotThereIsKnownByItsPath) {
  const AccountIdentity before = at(container("a"));
  fs::rename(directory.file("a"), directory.file("away"));
  EXPECT_TRUE(areOfOneAccount(before, at(directory.file("a"))));
  EXPECT_FALSE(areOfOneAccount(before, at(directory.file("b"))));
}

TEST_F(AccountIdentityTest, AWordThatOnlyOneHasDecidesNothing) {
  const AccountIdentity before = at(container("a"));
  identify(directory.file("a"), "ann");
  EXPECT_TRUE(areOfOneAccount(before, at(directory.file("a"))));
  EXPECT_EQ(joined(before, at(directory.file("a"))).account, "ann");
  EXPECT_EQ(joined(at(directory.file("a")), before).account, "ann");
}

TEST_F(AccountIdentityTest, AnIndexThatIsNoneSaysNothing) {
  writeFile(container("a") + "/state.db", "nonsense that is longer than a header of a database");
  EXPECT_EQ(at(directory.file("a")).account, "");
}

TEST_F(AccountIdentityTest, ANoteComesBackAsItWasWritten) {
  const AccountIdentity odd{"it's \"\xc3\xbc\xff\n", "/a \xfe/b", "7.8"};
  writeIdentity(directory.file("note"), odd);
  EXPECT_EQ(readIdentity(directory.file("note")), odd);
  EXPECT_FALSE(readIdentity(directory.file("missing")));
  writeFile(directory.file("note"), "nonsense");
  EXPECT_FALSE(readIdentity(directory.file("note")));
}

}  // namespace
}  // namespace tulo::test
