#include "service/edits/EditParts.h"

#include "tests/service/support/EditsFixture.h"

namespace tulo::test {
namespace {

class EditPartsTest : public EditsFixture {
 protected:
  EditParts parts() {
    return {engine->replica(), engine->files(), engine->store(), LocalNames(), [] {}};
  }

  FileTime touchedAt(NodeId folder, std::int64_t time) {
    clock = at(time);
    engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
      edits::touchFolder(writer, parts(), folder);
    });
    return row(folder)->modified;
  }
};

TEST_F(EditPartsTest, AChangeOfAFolderChangesItsTime) {
  const NodeId folder = makeFolder("Docs");
  clock += milliseconds(5'000);
  makeFile("a.txt", "", folder);
  EXPECT_EQ(row(folder)->modified, FileTime::of(clock));
}

TEST_F(EditPartsTest, AFoldersTimeIsNoFinerThanTenMilliseconds) {
  const NodeId folder = makeFolder("Docs");
  EXPECT_EQ(touchedAt(folder, 1'900'000'000'019), FileTime::of(at(1'900'000'000'010)));
  EXPECT_EQ(touchedAt(folder, 1'900'000'000'020), FileTime::of(at(1'900'000'000'020)));
}

TEST_F(EditPartsTest, AChangeIsDueAQuietTimeFromNow) {
  EXPECT_EQ(edits::due(parts()), clock + kQuiet);
}

TEST_F(EditPartsTest, ASpellingStandsForAnotherNameOnlyWhereTheHostHasThatStill) {
  downloaded("i:1", "a/b", "x");
  const auto filenameFor = [&](const std::string& name) {
    return engine->replica().read([&](ReplicaReader& reader) {
      return edits::filenameFor(reader, *reader.node(kRootNode), name);
    });
  };
  EXPECT_EQ(filenameFor("a.txt"), "a.txt");
  EXPECT_EQ(filenameFor("a%2Fb"), "a%2Fb");
  ASSERT_EQ(engine->edits().removeFile(kRootNode, "a%2Fb"), 0);
  EXPECT_EQ(filenameFor("a%2Fb"), "a/b");
  EXPECT_EQ(filenameFor("c%2Fb"), "c%2Fb");
  pushAll();
  EXPECT_EQ(filenameFor("a%2Fb"), "a%2Fb");
}

TEST_F(EditPartsTest, FindsAChildByItsNameInThatFolderOnly) {
  const NodeId folder = makeFolder("Docs");
  const NodeId file = makeFile("a.txt", "x", folder);
  engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
    EXPECT_EQ(edits::childOf(writer, folder, "a.txt")->id, file);
    EXPECT_FALSE(edits::childOf(writer, folder, "b.txt"));
    EXPECT_FALSE(edits::childOf(writer, kRootNode, "a.txt"));
  });
}

}  // namespace
}  // namespace tulo::test
