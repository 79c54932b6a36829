#include "service/mount/OpenRequests.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <future>

#include "tests/service/support/DescriptorShortage.h"
#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

// A kernel that is told of something and takes its time.
class SlowSink final : public InvalidationSink {
 public:
  void deliver(const Invalidation&) override { gone_.wait(); }

  std::promise<void> go;

 private:
  std::shared_future<void> gone_ = go.get_future().share();
};

class OpenRequestsTest : public MountFixture {
 protected:
  Kernel::Ticket beginOpen(NodeId node, int flags = O_RDONLY) {
    return kernel().send(FUSE_OPEN, node,
                         bytesOf(fuse_open_in{static_cast<std::uint32_t>(flags), 0}));
  }
};

TEST_F(OpenRequestsTest, AFileThatIsHereIsOpenedAtOnce) {
  const NodeId file = downloaded("f", "name", "bytes");
  const KernelReply reply = kernel().open(file, O_RDONLY);
  EXPECT_EQ(reply.error, 0);
  EXPECT_TRUE(engine->openFiles().isOpen(file));
  EXPECT_EQ(kernel().release(file, reply.as<fuse_open_out>().fh).error, 0);
  EXPECT_FALSE(engine->openFiles().isOpen(file));
}

TEST_F(OpenRequestsTest, AFileThatIsNotHereIsFetchedAndOthersAreAnsweredMeanwhile) {
  extension->file("f", "name", "bytes");
  list();
  extension->holdFetches();
  const Kernel::Ticket open = beginOpen(idOf("f"));
  EXPECT_EQ(kernel().getattr(idOf("f")).error, 0);
  EXPECT_FALSE(kernel().isAnswered(open));
  extension->releaseFetches();
  const KernelReply reply = kernel().await(open);
  EXPECT_EQ(reply.error, 0);
  EXPECT_EQ(kernel().read(reply.as<fuse_open_out>().fh, 100).body, "bytes");
  kernel().release(idOf("f"), reply.as<fuse_open_out>().fh);
}

TEST_F(OpenRequestsTest, WhatCannotBeFetchedCannotBeOpened) {
  extension->file("f", "name", "bytes");
  list();
  extension->scriptFetch({.error = unreachable()});
  EXPECT_EQ(kernel().open(idOf("f"), O_RDONLY).error, EHOSTDOWN);
  EXPECT_FALSE(engine->openFiles().isOpen(idOf("f")));
}

TEST_F(OpenRequestsTest, NothingIsOpenedForWritingInAReadOnlyMount) {
  const NodeId file = downloaded("f", "name", "bytes");
  mountReadOnly();
  EXPECT_EQ(kernel().open(file, O_WRONLY).error, EROFS);
  EXPECT_EQ(kernel().open(file, O_RDWR).error, EROFS);
  EXPECT_EQ(kernel().open(file, O_RDONLY | O_TRUNC).error, EROFS);
  EXPECT_EQ(kernel().release(file, kernel().opened(file, O_RDONLY)).error, 0);
}

TEST_F(OpenRequestsTest, WhatMayNotBeWrittenIsOpenedForReadingOnly) {
  const NodeId file = downloaded("f", "name", "bytes");
  extension->change("f", [](ScriptedItem& item) { item.capabilities = 1; });
  list();
  EXPECT_EQ(kernel().open(file, O_WRONLY).error, EACCES);
  EXPECT_EQ(kernel().release(file, kernel().opened(file, O_RDONLY)).error, 0);
}

TEST_F(OpenRequestsTest, AFileThatIsEmptiedIsNotFetched) {
  extension->file("f", "name", "bytes");
  list();
  const std::uint64_t handle = kernel().opened(idOf("f"), O_WRONLY | O_TRUNC);
  EXPECT_EQ(extension->fetchCount(), 0U);
  EXPECT_EQ(kernel().getattr(idOf("f")).as<fuse_attr_out>().attr.size, 0U);
  kernel().release(idOf("f"), handle);
}

TEST_F(OpenRequestsTest, WhatIsGoneCannotBeOpened) {
  EXPECT_EQ(kernel().open(NodeId(999'999), O_RDONLY).error, ESTALE);
}

TEST_F(OpenRequestsTest, TheKernelHearsOfANewVersionBeforeSomebodyReadsIt) {
  const NodeId file = downloaded("f", "name", "bytes");
  SlowSink sink;
  engine->notifier().start(sink);
  engine->notifier().queue({dataChanged(file)});
  const Kernel::Ticket open = beginOpen(file);
  EXPECT_FALSE(kernel().isAnswered(open));
  sink.go.set_value();
  const KernelReply reply = kernel().await(open);
  EXPECT_EQ(reply.error, 0);
  kernel().release(file, reply.as<fuse_open_out>().fh);
  engine->notifier().stop();
}

TEST_F(OpenRequestsTest, AWriterIsKnownAsLongAsItHasTheFileOpen) {
  const NodeId file = makeFile("name", "x");
  const std::uint64_t handle = kernel().opened(file, O_RDWR);
  EXPECT_TRUE(engine->openFiles().isOpenForWriting(file));
  kernel().release(file, handle);
  EXPECT_FALSE(engine->openFiles().isOpenForWriting(file));
}

// However few are left, at whichever step they run out: later versions of the host are not touched.
TEST_F(OpenRequestsTest, AnEmptyingThatFailedForWantOfDescriptorsDoesNotHarmWhatComesLater) {
  int refused = 0;
  for (int left = 0; left < 6; ++left) {
    const std::string name = "f" + std::to_string(left);
    const NodeId file = downloaded(name, name, "the first version");
    kernel().getattr(file);
    KernelReply reply;
    {
      const DescriptorShortage shortage(left);
      reply = kernel().open(file, O_WRONLY | O_TRUNC);
    }
    if (reply.error == 0) {
      kernel().release(file, reply.as<fuse_open_out>().fh);
      continue;
    }
    ++refused;
    EXPECT_EQ(reply.error, EMFILE) << left;
    EXPECT_EQ(engine->files().find(file), nullptr) << left;
    extension->edit(name, "another version of the host's");
    list();
    const std::uint64_t reader = kernel().opened(file, O_RDONLY);
    const std::uint64_t writer = kernel().opened(file, O_WRONLY);
    EXPECT_EQ(kernel().read(reader, 100).body, "another version of the host's") << left;
    EXPECT_EQ(kernel().write(file, "more", 29).error, 0);
    EXPECT_EQ(kernel().read(reader, 100).body, "another version of the host'smore") << left;
    kernel().release(file, writer);
    kernel().release(file, reader);
    EXPECT_EQ(contentsOf(file), "another version of the host'smore") << left;
  }
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace tulo::test
