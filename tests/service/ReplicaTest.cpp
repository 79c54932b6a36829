#include "service/Replica.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "service/Schema.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

Node childOf(NodeId parent, const std::string& name, const std::string& identifier) {
  Node node;
  node.parent = parent;
  node.name = name;
  node.filename = name;
  node.identifier = identifier;
  return node;
}

class ReplicaTest : public ::testing::Test {
 protected:
  NodeId insert(Replica& replica, const Node& node) {
    NodeId id = kNoNode;
    replica.write(Durability::eventual, [&](ReplicaWriter& writer) { id = writer.insert(node); });
    return id;
  }

  std::optional<Node> read(Replica& replica, NodeId id) {
    return replica.read([&](ReplicaReader& reader) { return reader.node(id); });
  }

  TemporaryDirectory directory;
};

TEST_F(ReplicaTest, KeepsRowsAcrossOpenings) {
  NodeId id = kNoNode;
  {
    Replica replica(directory.path());
    id = insert(replica, childOf(1, "a", "i:1"));
    EXPECT_GE(id, kFirstNode);
  }
  Replica replica(directory.path());
  ASSERT_TRUE(read(replica, id));
  EXPECT_EQ(read(replica, id)->identifier, "i:1");
  EXPECT_GT(insert(replica, childOf(1, "b", "i:2")), id);
}

TEST_F(ReplicaTest, RefusesANameOrAnIdentifierThatIsTaken) {
  Replica replica(directory.path());
  EXPECT_NE(insert(replica, childOf(1, "a", "i:1")), kNoNode);
  EXPECT_EQ(insert(replica, childOf(1, "a", "i:2")), kNoNode);
  EXPECT_EQ(insert(replica, childOf(2, "b", "i:1")), kNoNode);
  EXPECT_NE(insert(replica, childOf(2, "a", "i:3")), kNoNode);
}

TEST_F(ReplicaTest, AFailedWriteLeavesNothingAndHarmsNoOther) {
  Replica replica(directory.path());
  NodeId lost = kNoNode;
  EXPECT_THROW(replica.write(Durability::eventual,
                             [&](ReplicaWriter& writer) {
                               lost = writer.insert(childOf(1, "a", "i:1"));
                               throw std::runtime_error("no");
                             }),
               std::runtime_error);
  EXPECT_FALSE(read(replica, lost));
  EXPECT_NE(insert(replica, childOf(1, "a", "i:1")), kNoNode);
}

TEST_F(ReplicaTest, ManyWritersAreAllCommitted) {
  Replica replica(directory.path());
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        const std::string name = std::to_string(t) + "-" + std::to_string(i);
        insert(replica, childOf(1, name, "i:" + name));
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  const std::size_t count =
      replica.read([](ReplicaReader& reader) { return reader.childNodes(1).size(); });
  EXPECT_EQ(count, 400U);
}

TEST_F(ReplicaTest, SetsADamagedDatabaseAsideAndBeginsAnother) {
  writeFile(directory.file("replica.db"), std::string(8192, 'x'));
  Replica replica(directory.path());
  ASSERT_FALSE(replica.setAside().empty());
  EXPECT_EQ(readFile(replica.setAside()), std::string(8192, 'x'));
  EXPECT_NE(insert(replica, childOf(1, "a", "i:1")), kNoNode);
}

TEST_F(ReplicaTest, RefusesANewerSchema) {
  { Replica replica(directory.path()); }
  {
    Connection database(directory.file("replica.db"), Connection::Mode::create);
    database.execute("PRAGMA user_version=" + std::to_string(schema::kVersion + 1));
  }
  EXPECT_THROW(Replica(directory.path()), DatabaseError);
}

TEST_F(ReplicaTest, ListsByNumberFromACursor) {
  Replica replica(directory.path());
  std::vector<NodeId> ids;
  for (const char* name : {"c", "a", "b"}) {
    ids.push_back(insert(replica, childOf(1, name, std::string("i:") + name)));
  }
  std::vector<NodeId> seen;
  replica.read([&](ReplicaReader& reader) {
    reader.children(1, ids[0], [&](const Entry& entry, std::string_view) {
      seen.push_back(entry.id);
      return true;
    });
  });
  EXPECT_EQ(seen, (std::vector<NodeId>{ids[1], ids[2]}));
}

TEST_F(ReplicaTest, ALongLogIsMovedIntoTheDatabaseByAStepOfItsOwn) {
  Replica replica(directory.path());
  EXPECT_FALSE(replica.checkpointStep());
  const auto databaseSize = [&] {
    return std::filesystem::file_size(directory.file("replica.db"));
  };
  const auto before = databaseSize();
  for (int round = 0; round < 2; ++round) {
    replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
      for (int i = 0; i < 5000; ++i)
        writer.setMeta(std::to_string(round) + "." + std::to_string(i), std::string(4000, 'x'));
    });
    EXPECT_TRUE(replica.checkpointStep());
    EXPECT_FALSE(replica.checkpointStep());
  }
  EXPECT_GT(databaseSize(), before + 10'000'000);
}

}  // namespace
}  // namespace tulo::test
