#include "service/replica/Replica.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <thread>

#include "service/replica/Meta.h"
#include "service/replica/Schema.h"
#include "sqlite/Connection.h"
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

TEST_F(ReplicaTest, RefusesANameOrAnIdentifierThatIsTaken) {
  Replica replica(directory.path());
  EXPECT_NE(insert(replica, childOf(NodeId(1), "a", "i:1")), kNoNode);
  EXPECT_EQ(insert(replica, childOf(NodeId(1), "a", "i:2")), kNoNode);
  EXPECT_EQ(insert(replica, childOf(NodeId(2), "b", "i:1")), kNoNode);
  EXPECT_NE(insert(replica, childOf(NodeId(2), "a", "i:3")), kNoNode);
}

TEST_F(ReplicaTest, OfManyAtOnceThoseThatAreTakenAreLeftOut) {
  Replica replica(directory.path());
  insert(replica, childOf(NodeId(1), "taken", "i:taken"));
  constexpr std::size_t kCount = 2 * ReplicaWriter::kManyNodes + 5;
  const std::set<std::size_t> bad = {0, 7, ReplicaWriter::kManyNodes + 3, kCount - 1};
  std::vector<Node> nodes;
  for (std::size_t i = 0; i < kCount; ++i)
    nodes.push_back(childOf(NodeId(1), "n" + std::to_string(i), "i:" + std::to_string(i)));
  nodes[0].name = "taken";
  nodes[7].identifier = "i:6";
  nodes[ReplicaWriter::kManyNodes + 3].name = "n2";
  nodes[kCount - 1].identifier = "i:taken";
  replica.write(Durability::eventual, [&](ReplicaWriter& writer) { writer.insertMany(nodes); });
  for (std::size_t i = 0; i < kCount; ++i) {
    EXPECT_EQ(nodes[i].id == kNoNode, bad.contains(i)) << i;
    if (bad.contains(i)) continue;
    const std::optional<Node> row = read(replica, nodes[i].id);
    ASSERT_TRUE(row) << i;
    EXPECT_EQ(row->name, nodes[i].name);
    EXPECT_EQ(row->identifier, nodes[i].identifier);
  }
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

TEST_F(ReplicaTest, RefusesANewerSchema) {
  { Replica replica(directory.path()); }
  {
    sqlite::Connection database(directory.file("replica.db"), sqlite::Connection::Mode::create);
    database.execute("PRAGMA user_version=" + std::to_string(schema::kVersion + 1));
  }
  EXPECT_THROW(Replica(directory.path()), sqlite::DatabaseError);
}

TEST_F(ReplicaTest, ListsByNumberFromACursor) {
  Replica replica(directory.path());
  std::vector<NodeId> ids;
  for (const char* name : {"c", "a", "b"}) {
    ids.push_back(insert(replica, childOf(NodeId(1), name, std::string("i:") + name)));
  }
  std::vector<NodeId> seen;
  replica.read([&](ReplicaReader& reader) {
    reader.children(NodeId(1), ids[0], [&](const Entry& entry, std::string_view) {
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
        meta::set(writer, std::to_string(round) + "." + std::to_string(i), std::string(4000, 'x'));
    });
    EXPECT_TRUE(replica.checkpointStep());
    EXPECT_FALSE(replica.checkpointStep());
  }
  EXPECT_GT(databaseSize(), before + 10'000'000);
}

// What the end of the process would leave of the replica at this moment.
class ReplicaCopy {
 public:
  explicit ReplicaCopy(const std::string& from) {
    for (const char* name : {"replica.db", "replica.db-wal"})
      std::filesystem::copy_file(from + "/" + name, directory.file(name));
  }

  std::int64_t number(const std::string& key) const {
    Replica replica(directory.path());
    return replica.read([&](ReplicaReader& reader) { return meta::integer(reader, key); });
  }

  TemporaryDirectory directory;
};

void setNumber(Replica& replica, const std::string& key, std::int64_t number) {
  replica.write(Durability::eventual,
                [&](ReplicaWriter& writer) { meta::set(writer, key, number); });
}

// More than the writer keeps in memory, so that a part of it goes to the log before the rest.
void setMuch(ReplicaWriter& writer, const std::string& prefix) {
  for (int i = 0; i < 6000; ++i)
    meta::set(writer, prefix + std::to_string(i), std::string(4000, 'x'));
}

TEST_F(ReplicaTest, ACommitIsInTheLogFileWhenItReturns) {
  Replica replica(directory.path());
  for (int i = 1; i <= 3; ++i) {
    setNumber(replica, "small", i);
    EXPECT_EQ(ReplicaCopy(directory.path()).number("small"), i);
    replica.write(Durability::eventual, [&](ReplicaWriter& writer) {
      setMuch(writer, std::to_string(i) + ".");
      meta::set(writer, "large", i);
    });
    EXPECT_EQ(ReplicaCopy(directory.path()).number("large"), i);
    // The log begins anew.
    EXPECT_TRUE(replica.checkpointStep());
  }
}

TEST_F(ReplicaTest, WhatWasRolledBackLeavesNothingInTheLog) {
  Replica replica(directory.path());
  setNumber(replica, "before", 1);
  const auto fail = [](ReplicaWriter& writer) {
    setMuch(writer, "x.");
    meta::set(writer, "failed", 1);
    throw std::runtime_error("no");
  };
  EXPECT_THROW(replica.write(Durability::eventual, fail), std::runtime_error);
  EXPECT_EQ(ReplicaCopy(directory.path()).number("before"), 1);
  setNumber(replica, "after", 2);
  const ReplicaCopy copy(directory.path());
  EXPECT_EQ(copy.number("before"), 1);
  EXPECT_EQ(copy.number("after"), 2);
  EXPECT_EQ(copy.number("failed"), 0);
}

TEST_F(ReplicaTest, ATransactionThatReachedTheLogInPartDoesNotCount) {
  Replica replica(directory.path());
  setNumber(replica, "first", 1);
  const std::string log = directory.file("replica.db-wal");
  const auto before = std::filesystem::file_size(log);
  replica.write(Durability::eventual, [](ReplicaWriter& writer) {
    for (int i = 0; i < 20; ++i)
      meta::set(writer, std::to_string(i), std::string(4000, 'x'));
    meta::set(writer, "second", 2);
  });
  const auto after = std::filesystem::file_size(log);
  ASSERT_GT(after, before + 20 * 4096);
  for (const auto size :
       {before + 1, before + 24, before + 4120, (before + after) / 2, after - 1}) {
    const ReplicaCopy copy(directory.path());
    std::filesystem::resize_file(copy.directory.file("replica.db-wal"), size);
    EXPECT_EQ(copy.number("first"), 1) << size;
    EXPECT_EQ(copy.number("second"), 0) << size;
  }
  EXPECT_EQ(ReplicaCopy(directory.path()).number("second"), 2);
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
