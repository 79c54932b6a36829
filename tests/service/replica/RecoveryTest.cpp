#include "service/replica/Recovery.h"

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class RecoveryTest : public WritingFixture {
 protected:
  // The engine ends, and the database is beyond reading.
  void damage() {
    engine.reset();
    const std::string path = options.stateDirectory + "/replica.db";
    std::filesystem::remove(path + "-wal");
    std::filesystem::remove(path + "-shm");
    writeFile(path, std::string(16384, 'x'));
    EngineFixture::open();
  }

  std::map<std::string, NodeId> recovered() { return names(named(kRecoveryFolder)); }
};

TEST_F(RecoveryTest, UnsentContentsComeBackUnderTheirNamesAndGoUp) {
  makeFile("new.txt", "new");
  const NodeId edited = downloaded("i:1", "edited.txt", "base");
  write(edited, "mine");
  damage();
  EXPECT_EQ(engine->recovered(), 2U);
  EXPECT_FALSE(engine->replica().setAside().empty());
  EXPECT_TRUE(std::filesystem::exists(engine->replica().setAside()));
  const auto files = recovered();
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(contentsOf(files.at("new.txt")), "new");
  EXPECT_EQ(contentsOf(files.at("edited.txt")), "mine");
  pushAll();
  EXPECT_EQ(hostContents("new.txt"), "new");
  EXPECT_EQ(extension->find("i:1")->contents, "base");
}

TEST_F(RecoveryTest, WhatTheHostHasIsNotRecovered) {
  downloaded("i:1", "a.txt", "base");
  makeFile("b.txt", "sent");
  push();
  damage();
  EXPECT_EQ(engine->recovered(), 0U);
  EXPECT_EQ(named(kRecoveryFolder), kNoNode);
}

TEST_F(RecoveryTest, TwoFilesOfOneNameBothComeBack) {
  makeFile("a.txt", "one", makeFolder("x"));
  makeFile("a.txt", "two", makeFolder("y"));
  damage();
  const auto files = recovered();
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files.count("a.txt"), 1U);
  EXPECT_EQ(files.count("a (2).txt"), 1U);
  EXPECT_NE(contentsOf(files.at("a.txt")), contentsOf(files.at("a (2).txt")));
}

TEST_F(RecoveryTest, ARenamedFileComesBackUnderItsLastName) {
  makeFile("a.txt", "x");
  EXPECT_EQ(rename("a.txt", "b.txt"), 0);
  damage();
  EXPECT_EQ(recovered().count("b.txt"), 1U);
}

TEST_F(RecoveryTest, NumbersOfContentsAreNotGivenAgain) {
  const NodeId id = makeFile("a.txt", "precious");
  const ContentId before = row(id)->content;
  damage();
  const NodeId fresh = makeFile("fresh.txt", "x");
  EXPECT_GT(row(fresh)->content, before);
  EXPECT_EQ(contentsOf(recovered().at("a.txt")), "precious");
}

TEST_F(RecoveryTest, ARecoveryHappensOnce) {
  makeFile("a.txt", "x");
  damage();
  EXPECT_EQ(recovered().size(), 1U);
  reopen();
  EXPECT_EQ(engine->recovered(), 0U);
  EXPECT_EQ(recovered().size(), 1U);
}

TEST_F(RecoveryTest, AFileInTheWayOfTheRecoveryFolderStays) {
  engine->replica().write(Durability::eventual, [](ReplicaWriter& writer) {
    Node node;
    node.parent = kRootNode;
    node.name = node.filename = kRecoveryFolder;
    node.identifier = "i:taken";
    EXPECT_NE(writer.insert(node), kNoNode);
  });
  const NodeId folder = makeFolder("gone");
  makeFile("a.txt", "x", folder);
  engine->replica().write(Durability::eventual,
                          [&](ReplicaWriter& writer) { rescueChanged(writer, folder); });
  const std::string other = std::string(kRecoveryFolder) + " (2)";
  EXPECT_EQ(contentsOf(named("a.txt", named(other))), "x");
}

TEST_F(RecoveryTest, WhatWasChangedBelowAFolderThatGoesIsRescued) {
  extension->folder("f:1", "Docs");
  list();
  const NodeId folder = idOf("f:1");
  extension->file("i:1", "a.txt", "base", "f:1");
  EXPECT_EQ(refresh(folder), 0);
  const NodeId file = idOf("i:1");
  readThrough(file);
  write(file, "mine");
  engine->replica().write(Durability::eventual,
                          [&](ReplicaWriter& writer) { rescueChanged(writer, folder); });
  EXPECT_EQ(recovered().count("a.txt"), 1U);
  EXPECT_EQ(contentsOf(file), "mine");
  EXPECT_TRUE(change(file)->base().place.parent.empty());
  EXPECT_TRUE(row(file)->identifier.empty());
}

TEST_F(RecoveryTest, TwoFilesOfALongNameBothComeBack) {
  const std::string name = std::string(251, 'n') + ".txt";
  makeFile(name, "one", makeFolder("x"));
  makeFile(name, "two", makeFolder("y"));
  damage();
  const auto files = recovered();
  ASSERT_EQ(files.size(), 2U);
  for (const auto& [found, id] : files)
    EXPECT_LE(found.size(), 255U);
}

}  // namespace
}  // namespace tulo::test
