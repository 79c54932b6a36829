#include "service/Storage.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/FileProvider.h"
#include "service/replica/ContentRows.h"
#include "service/replica/Recovery.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::test {
namespace {

class StorageTest : public ::testing::Test {
 protected:
  Storage open() { return Storage(directory.path(), directory.path(), CacheLimits()); }

  static std::optional<Node> root(Storage& storage) {
    return storage.replica().read([](ReplicaReader& reader) { return reader.node(kRootNode); });
  }

  // Contents that were not sent, as a service leaves them.
  static void addUnsent(Storage& storage, const std::string& name) {
    storage.replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
      storage.store().create(contentRows::reserve(writer, kRootNode), name);
    });
  }

  void loseReplica() {
    for (const char* name : {"replica.db", "replica.db-wal", "replica.db-shm"})
      std::filesystem::remove(directory.file(name));
  }

  TemporaryDirectory directory;
};

TEST_F(StorageTest, ANewReplicaHasARootThatAllowsAdding) {
  Storage storage = open();
  const auto node = root(storage);
  ASSERT_TRUE(node);
  EXPECT_EQ(node->kind, NodeKind::folder);
  EXPECT_EQ(node->identifier, platform::NSFileProviderRootContainerItemIdentifier());
  EXPECT_NE(node->capabilities & platform::NSFileProviderItemCapabilitiesAllowsAddingSubItems, 0U);
  EXPECT_EQ(storage.recovered(), 0U);
}

TEST_F(StorageTest, TheRootStaysAsItIs) {
  {
    Storage storage = open();
    storage.replica().write(Durability::eventual,
                            [](ReplicaWriter& writer) { writer.setError(kRootNode, "seen"); });
  }
  Storage storage = open();
  EXPECT_EQ(root(storage)->error, "seen");
}

TEST_F(StorageTest, UnsentContentsAreRecoveredOnceWhenTheReplicaIsNew) {
  {
    Storage storage = open();
    addUnsent(storage, "mine.txt");
  }
  loseReplica();
  {
    Storage storage = open();
    EXPECT_EQ(storage.recovered(), 1U);
    const auto folder = storage.replica().read(
        [](ReplicaReader& reader) { return reader.lookup(kRootNode, kRecoveryFolder); });
    EXPECT_TRUE(folder.entry);
  }
  Storage storage = open();
  EXPECT_EQ(storage.recovered(), 0U);
}

TEST_F(StorageTest, ADamagedReplicaIsSetAside) {
  writeFile(directory.file("replica.db"), std::string(16384, 'x'));
  Storage storage = open();
  EXPECT_TRUE(std::filesystem::exists(storage.replica().setAside()));
  EXPECT_TRUE(root(storage));
}

TEST_F(StorageTest, ANameThatNoFolderCanHoldIsCutAtTheStart) {
  {
    Storage storage = open();
    storage.replica().write(Durability::eventual, [](ReplicaWriter& writer) {
      Node copy;
      copy.parent = kRootNode;
      copy.kind = NodeKind::file;
      copy.name = copy.filename = std::string(300, 'n');
      writer.insert(copy);
    });
  }
  Storage storage = open();
  const auto names =
      storage.replica().read([](ReplicaReader& reader) { return reader.childNodes(kRootNode); });
  ASSERT_EQ(names.size(), 1U);
  EXPECT_EQ(names.front().name, std::string(255, 'n'));
}

}  // namespace
}  // namespace tulo::test
