#include "service/upload/Uploader.h"

#include <cerrno>
#include <filesystem>

#include "tests/service/support/UploadFixture.h"

namespace tulo::test {
namespace {

constexpr int kWaits = -1;

class UploaderTest : public UploadFixture {
 protected:
  // A program that waits for the node; what it was told is in the result.
  std::shared_ptr<int> await(NodeId node, milliseconds patience = milliseconds(5000)) {
    const auto told = std::make_shared<int>(kWaits);
    const auto ticket = engine->uploader().verdicts().begin([told](int error) { *told = error; });
    engine->uploader().awaitVerdict(ticket, {node}, patience);
    return told;
  }
};

TEST_F(UploaderTest, WhoWaitsIsToldWhenTheHostHasIt) {
  const auto told = await(makeFile("a.txt", "hello"));
  EXPECT_EQ(*told, kWaits);
  // Without a quiet time.
  EXPECT_EQ(drain(), 1U);
  EXPECT_EQ(*told, 0);
}

TEST_F(UploaderTest, WhoWaitsIsToldOfTheFirstFailure) {
  const auto told = await(makeFile("a.txt", "hello"));
  failOnce(platform::fileProviderError(platform::NSFileProviderErrorCode::insufficientQuota));
  drain();
  EXPECT_EQ(*told, EDQUOT);
  EXPECT_EQ(counts().pending, 1);
}

TEST_F(UploaderTest, NobodyWaitsForAHostThatIsNotThere) {
  std::filesystem::remove(directory.file("fp.sock"));
  EXPECT_EQ(*await(makeFile("a.txt", "hello")), EHOSTDOWN);
}

TEST_F(UploaderTest, NobodyWaitsAfterTheStop) {
  const NodeId id = makeFile("a.txt", "hello");
  const auto before = await(id);
  engine->uploader().stop();
  EXPECT_EQ(*before, EIO);
  EXPECT_EQ(*await(id), EIO);
}

TEST_F(UploaderTest, AFileThatIsStillOpenGoesUpForWhoWaits) {
  const NodeId id = makeFile("a.txt", "hello");
  OpenFile handle(engine->replica(), engine->openFiles(), engine->store(), id, row(id)->content, 0);
  handle.setWrites();
  push();
  EXPECT_TRUE(sent().empty());
  const auto told = await(id);
  drain();
  EXPECT_EQ(*told, 0);
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(UploaderTest, TheStatisticsCountWhatBecameOfTheRequests) {
  makeFile("a.txt", "hello");
  failOnce(platform::fileProviderError(platform::NSFileProviderErrorCode::insufficientQuota));
  push();
  const Uploader::Statistics failed = engine->uploader().statistics();
  EXPECT_EQ(failed.failures, 1U);
  EXPECT_EQ(failed.sent, 0U);
  EXPECT_FALSE(failed.lastError.empty());
  EXPECT_EQ(failed.counts.pending, 1);
  pushAll();
  const Uploader::Statistics done = engine->uploader().statistics();
  EXPECT_EQ(done.sent, 1U);
  EXPECT_EQ(done.failures, 1U);
  EXPECT_EQ(done.active, 0U);
  EXPECT_TRUE(done.present);
  EXPECT_TRUE(done.reachable);
}

}  // namespace
}  // namespace tulo::test
