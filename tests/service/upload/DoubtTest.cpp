#include "service/upload/Doubt.h"

#include <filesystem>
#include <memory>

#include "tests/service/support/UploadFixture.h"
#include "tests/support/Connection.h"
#include "tests/support/FakeHost.h"

namespace tulo::test {
namespace {

using platform::fileProviderError;
using platform::NSFileProviderErrorCode;

class DoubtTest : public UploadFixture {};

TEST_F(DoubtTest, AFileWhoseReplyWasLostIsNotMadeTwice) {
  const NodeId id = makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  EXPECT_TRUE(change(id)->request.isOpen());
  pushAll();
  EXPECT_EQ(sent().size(), 1U);
  EXPECT_EQ(extension->named("a.txt").size(), 1U);
  EXPECT_EQ(row(id)->identifier, "new:1");
}

TEST_F(DoubtTest, AFolderWhoseReplyWasLostIsNotMadeTwice) {
  const NodeId folder = makeFolder("Docs");
  makeFile("a.txt", "hello", folder);
  failOnce(fileProviderError(NSFileProviderErrorCode::serverUnreachable), true);
  push();
  pushAll();
  EXPECT_EQ(extension->named("Docs").size(), 1U);
  EXPECT_EQ(hostContents("a.txt"), "hello");
}

TEST_F(DoubtTest, AnEditWhoseReplyWasLostIsNoConflict) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  pushAll();
  EXPECT_EQ(extension->find("i:1")->contents, "mine");
  EXPECT_EQ(extension->find("i:1")->version, 2);
  EXPECT_EQ(names().size(), 1U);
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(DoubtTest, AFileOfTheSameNameWithOtherContentsIsNotTakenForTheLostOne) {
  makeFile("a.txt", "mine!");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize));
  push();
  extension->file("i:7", "a.txt", "other");
  pushAll();
  EXPECT_EQ(extension->find("i:7")->contents, "other");
  EXPECT_EQ(extension->named("a.txt").size(), 2U);
}

TEST_F(DoubtTest, DeletedWhileTheReplyIsLostIsDeletedThere) {
  makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  EXPECT_EQ(engine->edits().removeFile(kRootNode, "a.txt"), 0);
  push();
  pushAll();
  EXPECT_TRUE(extension->named("a.txt").empty());
}

TEST_F(DoubtTest, ARequestOfAnEarlierRunIsNotMadeTwice) {
  const NodeId id = makeFile("a.txt", "hello");
  failOnce(fileProviderError(NSFileProviderErrorCode::cannotSynchronize), true);
  push();
  reopen();
  pushAll();
  EXPECT_EQ(extension->named("a.txt").size(), 1U);
  EXPECT_EQ(row(id)->identifier, "new:1");
}

// A host that takes its time, of which the service's connection is gone: what an earlier run of the
// service asked for.
class SlowHostTest : public DoubtTest {
 protected:
  SlowHostTest() {
    std::filesystem::remove(directory.file("fp.sock"));
    host = std::make_unique<FakeHost>(directory.file("fp.sock"));
    host->then({[this](FakeHost::Peer& peer) {
      peer.readRequest();
      mayEnd.wait();
      peer.hangUp();
    }});
  }

  ~SlowHostTest() override { mayEnd.open(); }

  // The request was made, and the service ended before the answer.
  void leave(NodeId id) {
    engine->replica().write(Durability::eventual, [&](ReplicaWriter& writer) {
      Change change = *journal::find(writer, id);
      change.request.made(writer.node(id)->content, {root(), writer.node(id)->filename});
      // Of an earlier attempt.
      change.standing.putOff(clock);
      journal::put(writer, change);
    });
    {
      const FileDescriptor gone = waitingClient(directory.file("fp.sock"));
      ASSERT_TRUE(host->waitForRequests(1));
    }
    reopen();
  }

  void hostEnds() {
    mayEnd.open();
    ASSERT_TRUE(host->waitUntilClosed(1));
  }

  Gate mayEnd;
  std::unique_ptr<FakeHost> host;
};

TEST_F(SlowHostTest, WhatTheHostIsStillAtIsNotMadeASecondTime) {
  const NodeId id = makeFile("report.pdf", "hello");
  leave(id);
  for (int i = 0; i < 20; ++i) {
    clock += seconds(40);
    drain();
  }
  EXPECT_TRUE(sent().empty());
  EXPECT_FALSE(change(id)->standing.isRefused());
  EXPECT_FALSE(change(id)->standing.reason().empty());
  extension->file("i:7", "report.pdf", "hello");
  hostEnds();
  pushAll();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(row(id)->identifier, "i:7");
}

TEST_F(SlowHostTest, WhatAppearsIsTakenBeforeTheHostHasEnded) {
  const NodeId id = makeFile("report.pdf", "hello");
  leave(id);
  push();
  extension->file("i:7", "report.pdf", "hello");
  clock += seconds(40);
  drain();
  EXPECT_EQ(row(id)->identifier, "i:7");
  EXPECT_EQ(counts().pending, 0);
}

TEST_F(SlowHostTest, WhatTheHostGaveUpIsMadeAgainAtOnce) {
  const NodeId id = makeFile("report.pdf", "hello");
  leave(id);
  push();
  EXPECT_TRUE(sent().empty());
  hostEnds();
  clock += seconds(40);
  drain();
  EXPECT_EQ(sent().size(), 1U);
  EXPECT_EQ(row(id)->identifier, "new:1");
}

TEST_F(SlowHostTest, NewContentsThatTheHostIsStillAtAreNotSentAgain) {
  const NodeId id = downloaded("i:1", "a.txt", "base");
  write(id, "mine");
  leave(id);
  for (int i = 0; i < 10; ++i) {
    clock += seconds(40);
    drain();
  }
  EXPECT_TRUE(sent().empty());
  extension->edit("i:1", "mine");
  hostEnds();
  pushAll();
  EXPECT_TRUE(sent().empty());
  EXPECT_EQ(engine->uploader().statistics().conflicts, 0U);
}

TEST_F(SlowHostTest, WhoWaitsForAHostThatIsGoneIsTold) {
  const NodeId id = makeFile("report.pdf", "hello");
  leave(id);
  hostEnds();
  host.reset();
  leaveStaleSocket(directory.file("fp.sock"));
  int told = 0;
  const auto ticket = engine->uploader().verdicts().begin([&](int error) { told = error; });
  engine->uploader().awaitVerdict(ticket, {id}, std::chrono::minutes(10));
  clock += seconds(40);
  drain();
  EXPECT_EQ(told, EHOSTDOWN);
  EXPECT_TRUE(change(id)->request.isOpen());
  EXPECT_TRUE(change(id)->request.isUnanswered());
}

TEST_F(SlowHostTest, ARequestThatIsGoneWithItsHostIsMadeAnew) {
  const NodeId id = makeFile("report.pdf", "hello");
  leave(id);
  hostEnds();
  host.reset();
  leaveStaleSocket(directory.file("fp.sock"));
  for (int i = 0; i < 5; ++i) {
    clock += seconds(40);
    drain();
  }
  EXPECT_TRUE(sent().empty()) << "nobody is there to be asked";
  std::filesystem::remove(directory.file("fp.sock"));
  host = std::make_unique<FakeHost>(directory.file("fp.sock"));
  clock += std::chrono::minutes(1);
  drain();
  EXPECT_EQ(sent().size(), 1U);
  EXPECT_EQ(extension->named("report.pdf").size(), 1U);
}

}  // namespace
}  // namespace tulo::test
