#include "service/upload/SentContents.h"

#include <filesystem>
#include <optional>
#include <stdexcept>

#include "tests/service/support/DescriptorShortage.h"
#include "tests/service/support/ReplicaSql.h"
#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

class SentContentsTest : public UploadFixture {
 protected:
  SentContentsTest() : provider(extension, engine->store()) {}

  std::optional<bool> hostHas(const std::string& identifier, NodeId node) {
    return hostHasContents(provider, engine->store(), identifier, row(node)->content);
  }

  // Not if nothing can be said of it.
  bool takenForAnother(const std::string& identifier, NodeId node) {
    try {
      return hostHas(identifier, node) == false;
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  Provider provider;
};

TEST_F(SentContentsTest, TheHostsBytesAreCompared) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->file("i:same", "b.txt", "hello");
  extension->file("i:other", "c.txt", "hullo");
  extension->file("i:longer", "d.txt", "hello!");
  EXPECT_EQ(hostHas("i:same", id), true);
  EXPECT_EQ(hostHas("i:other", id), false);
  EXPECT_EQ(hostHas("i:longer", id), false);
}

TEST_F(SentContentsTest, WhatIsGoneHasOtherBytes) {
  EXPECT_EQ(hostHas("i:1", makeFile("a.txt", "hello")), false);
}

TEST_F(SentContentsTest, BytesThatCannotBeHadAreNotGuessed) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->file("i:1", "b.txt", "hello");
  extension->scriptFetch(
      {.error = platform::fileProviderError(platform::NSFileProviderErrorCode::serverUnreachable)});
  EXPECT_THROW(hostHas("i:1", id), std::runtime_error);
  provider.stop();
  extension->holdFetches();
  EXPECT_EQ(hostHas("i:1", id), std::nullopt);
}

TEST_F(SentContentsTest, TheFileThatWasHandedOverIsRemoved) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->file("i:1", "b.txt", "hello");
  const auto files = [&] {
    std::size_t count = 0;
    for (const auto& each : std::filesystem::recursive_directory_iterator(directory.path()))
      count += each.is_regular_file() ? 1 : 0;
    return count;
  };
  const std::size_t before = files();
  EXPECT_EQ(hostHas("i:1", id), true);
  EXPECT_EQ(files(), before);
}

TEST_F(SentContentsTest, WhatIsNotThereHasNoSize) {
  EXPECT_EQ(sizeOf(engine->store(), row(makeFile("a.txt", "hello"))->content), 5);
  EXPECT_EQ(sizeOf(engine->store(), ContentId(12345)), -1);
}

TEST_F(SentContentsTest, WhatWasSentIsLetGoOfUnlessTheNodeHasIt) {
  const NodeId id = makeFile("a.txt", "hello");
  const ContentId contents = row(id)->content;
  Change change = *this->change(id);
  change.request.made(contents, {});
  const auto isUsed = [&](ContentId current) {
    engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
      dropSentContents(writer, change, current);
    });
    return engine->replica().read([&](ReplicaReader& reader) {
      return askSql(reader,
                    "SELECT used FROM content WHERE id=" + std::to_string(contents.number())) != 0;
    });
  };
  EXPECT_TRUE(isUsed(contents));
  EXPECT_FALSE(isUsed(ContentId(contents.number() + 1)));
}

// A host that is mistaken may name anything.
TEST_F(SentContentsTest, AFileThatWasNotHandedOverStaysWhereItIs) {
  const TemporaryDirectory elsewhere;
  const NodeId id = makeFile("a.txt", "hello");
  extension->file("i:1", "b.txt", "hello");
  writeFile(elsewhere.file("thesis.odt"), "hello");
  extension->scriptFetch({.path = elsewhere.file("thesis.odt")});
  EXPECT_EQ(hostHas("i:1", id), true);
  EXPECT_EQ(readFile(elsewhere.file("thesis.odt")), "hello");
  const std::string index = readFile(directory.file("state.db"));
  extension->scriptFetch({.path = directory.file("state.db")});
  EXPECT_THROW(hostHas("i:1", id), std::runtime_error);
  EXPECT_EQ(readFile(directory.file("state.db")), index);
}

TEST_F(SentContentsTest, WithoutDescriptorsNothingIsTakenForAnotherVersion) {
  const NodeId id = makeFile("a.txt", "hello");
  extension->file("i:1", "b.txt", "hello");
  for (int left = 0; left < 8; ++left) {
    std::optional<DescriptorShortage> shortage;
    extension->scriptFetch({.after = [&] { shortage.emplace(left); }});
    const bool isTakenForAnother = takenForAnother("i:1", id);
    shortage.reset();
    EXPECT_FALSE(isTakenForAnother) << left;
  }
}

}  // namespace
}  // namespace tulo::test
