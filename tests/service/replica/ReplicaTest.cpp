#include "service/replica/Replica.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "service/replica/Meta.h"
#include "tests/service/support/ReplicaCopy.h"
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
    id = insert(replica, childOf(NodeId(1), "a", "i:1"));
    EXPECT_GE(id, kFirstNode);
  }
  Replica replica(directory.path());
  ASSERT_TRUE(read(replica, id));
  EXPECT_EQ(read(replica, id)->identifier, "i:1");
  EXPECT_GT(insert(replica, childOf(NodeId(1), "b", "i:2")), id);
}

TEST_F(ReplicaTest, AFailedWriteLeavesNothingAndHarmsNoOther) {
  Replica replica(directory.path());
  NodeId lost = kNoNode;
  EXPECT_THROW(replica.write(Durability::eventual,
                             [&](ReplicaWriter& writer) {
                               lost = writer.insert(childOf(NodeId(1), "a", "i:1"));
                               throw std::runtime_error("no");
                             }),
               std::runtime_error);
  EXPECT_FALSE(read(replica, lost));
  EXPECT_NE(insert(replica, childOf(NodeId(1), "a", "i:1")), kNoNode);
}

TEST_F(ReplicaTest, ManyWritersAreAllCommitted) {
  Replica replica(directory.path());
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        const std::string name = std::to_string(t) + "-" + std::to_string(i);
        insert(replica, childOf(NodeId(1), name, "i:" + name));
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  const std::size_t count =
      replica.read([](ReplicaReader& reader) { return reader.childNodes(NodeId(1)).size(); });
  EXPECT_EQ(count, 400U);
}

TEST_F(ReplicaTest, SetsADamagedDatabaseAsideAndBeginsAnother) {
  writeFile(directory.file("replica.db"), std::string(8192, 'x'));
  Replica replica(directory.path());
  ASSERT_FALSE(replica.setAside().empty());
  EXPECT_EQ(readFile(replica.setAside()), std::string(8192, 'x'));
  EXPECT_NE(insert(replica, childOf(NodeId(1), "a", "i:1")), kNoNode);
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
        meta::set(writer, std::to_string(round) + "." + std::to_string(i), std::string(4000, 'x'));
    });
    EXPECT_TRUE(replica.checkpointStep());
    EXPECT_FALSE(replica.checkpointStep());
  }
  EXPECT_GT(databaseSize(), before + 10'000'000);
}

void setNumber(Replica& replica, const std::string& key, std::int64_t number) {
  replica.write(Durability::eventual,
                [&](ReplicaWriter& writer) { meta::set(writer, key, number); });
}

TEST_F(ReplicaTest, ABriefReadSeesWhatWasCommittedBefore) {
  Replica replica(directory.path());
  const auto number = [&] {
    return replica.readBriefly([](ReplicaReader& reader) { return meta::integer(reader, "n"); });
  };
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 2; ++thread) {
    threads.emplace_back([&] {
      std::int64_t last = 0;
      for (int i = 0; i < 300; ++i) {
        const std::int64_t now = number();
        EXPECT_GE(now, last);
        last = now;
      }
    });
  }
  for (int i = 1; i <= 300; ++i) {
    setNumber(replica, "n", i);
    EXPECT_EQ(number(), i);
  }
  for (std::thread& thread : threads)
    thread.join();
}

TEST_F(ReplicaTest, ABriefReadDoesNotWaitForAWriter) {
  Replica replica(directory.path());
  setNumber(replica, "n", 1);
  replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
    meta::set(writer, "n", 2);
    EXPECT_EQ(replica.readBriefly([](ReplicaReader& reader) { return meta::integer(reader, "n"); }),
              1);
  });
}

TEST_F(ReplicaTest, ForcesTheLogOnTheOtherThreadForAllWhoWait) {
  Replica replica(directory.path());
  const std::uint64_t unused = replica.beginSynchronize();
  EXPECT_GT(unused, 0U);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < 50; ++i) {
        setNumber(replica, std::to_string(thread), i);
        const std::uint64_t turn = replica.beginSynchronize();
        if (thread == 2) replica.synchronize();
        replica.endSynchronize(turn);
        // Done with already.
        replica.endSynchronize(turn);
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  const ReplicaCopy copy(directory.path());
  for (int thread = 0; thread < 3; ++thread)
    EXPECT_EQ(copy.number(std::to_string(thread)), 49);
}

TEST_F(ReplicaTest, ABriefReadThatFailsLetsTheNextOneIn) {
  Replica replica(directory.path());
  const auto fail = [](ReplicaReader&) -> int { throw std::runtime_error("no"); };
  EXPECT_THROW(replica.readBriefly(fail), std::runtime_error);
  setNumber(replica, "n", 1);
  EXPECT_EQ(replica.readBriefly([](ReplicaReader& reader) { return meta::integer(reader, "n"); }),
            1);
}

}  // namespace
}  // namespace tulo::test
