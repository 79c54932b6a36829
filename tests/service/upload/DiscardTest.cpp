#include "service/upload/Discard.h"

#include <linux/fs.h>

#include <cerrno>

#include "service/upload/AsideName.h"
#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class DiscardTest : public WritingFixture {};

TEST_F(DiscardTest, DiscardShowsTheHostsStateAgain) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  EXPECT_EQ(engine->uploader().discard(id), 0);
  EXPECT_EQ(counts().pending, 0);
  list();
  EXPECT_EQ(readThrough(named("a.txt")), "base");
  EXPECT_EQ(engine->uploader().discard(named("a.txt")), ENOENT);
}

TEST_F(DiscardTest, DiscardRefusesANewFolderWithSomethingInIt) {
  const NodeId folder = makeFolder("Docs");
  makeFile("a.txt", "x", folder);
  EXPECT_EQ(engine->uploader().discard(folder), ENOTEMPTY);
  push();
  EXPECT_EQ(hostContents("a.txt"), "x");
}

// Two files that exchange their names, stopped when one of them has made room for the other.
class AsideTest : public DiscardTest {
 protected:
  AsideTest() {
    downloaded("i:1", "a", "A");
    downloaded("i:2", "b", "B");
    EXPECT_EQ(rename("a", "b", RENAME_EXCHANGE), 0);
    clock += kQuiet;
    EXPECT_TRUE(engine->uploader().step());
    aside = sent().front().identifier;
    EXPECT_TRUE(isAsideName(extension->find(aside)->name)) << extension->find(aside)->name;
  }

  std::string formerName() const { return aside == "i:1" ? "a" : "b"; }
  std::string nameHere() const { return aside == "i:1" ? "b" : "a"; }
  std::string contents() const { return aside == "i:1" ? "A" : "B"; }

  std::string aside;
};

TEST_F(AsideTest, DiscardGivesTheFormerNameBack) {
  EXPECT_EQ(engine->uploader().discard(idOf(aside)), 0);
  EXPECT_EQ(extension->find(aside)->name, formerName());
  list();
  EXPECT_FALSE(change(idOf(aside)));
  EXPECT_EQ(readThrough(idOf(aside)), contents());
}

TEST_F(AsideTest, DiscardGivesTheNewNameIfTheFormerOneIsTaken) {
  EXPECT_TRUE(engine->uploader().step());
  EXPECT_EQ(extension->named(formerName()).size(), 1U);
  EXPECT_EQ(engine->uploader().discard(idOf(aside)), 0);
  EXPECT_EQ(extension->find(aside)->name, nameHere());
  EXPECT_EQ(extension->named(formerName()).size(), 1U);
}

TEST_F(AsideTest, DiscardIsRefusedWhereBothAreTaken) {
  EXPECT_TRUE(engine->uploader().step());
  extension->file("i:3", nameHere(), "somebody else's");
  const NodeId id = idOf(aside);
  EXPECT_EQ(engine->uploader().discard(id), EEXIST);
  EXPECT_TRUE(change(id));
  extension->remove("i:3");
  pushAll();
  EXPECT_EQ(hostContents(nameHere()), contents());
}

TEST_F(AsideTest, DiscardNeedsTheHost) {
  extension->setListingError(
      platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable));
  const NodeId id = idOf(aside);
  EXPECT_EQ(engine->uploader().discard(id), EHOSTDOWN);
  EXPECT_TRUE(change(id));
  extension->setListingError(std::nullopt);
  pushAll();
  EXPECT_EQ(hostContents(nameHere()), contents());
}

TEST_F(AsideTest, NothingIsRememberedOnceEachHasItsName) {
  pushAll();
  EXPECT_EQ(hostContents(nameHere()), contents());
  EXPECT_EQ(engine->replica().read([](ReplicaReader& reader) {
    return askSql(reader, "SELECT count(*) FROM meta WHERE key LIKE 'place before%'");
  }),
            0);
}

}  // namespace
}  // namespace tulo::test
