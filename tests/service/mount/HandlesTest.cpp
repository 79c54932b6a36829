#include "service/mount/Handles.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "tests/service/support/MountFixture.h"

namespace tulo::test {
namespace {

class HandlesTest : public MountFixture {
 protected:
  std::uint32_t flagsOfOpen(NodeId node, int flags) {
    const auto answer = kernel().open(node, flags).as<fuse_open_out>();
    kernel().release(node, answer.fh);
    return answer.open_flags;
  }

  // The node, open to be written to.
  std::unique_ptr<OpenFile> openedIn(Handles& handles, NodeId node) {
    std::unique_ptr<OpenFile> file = engine->contents().openAsIs(node);
    EXPECT_EQ(handles.prepareToWrite(toWrite(), *file), 0);
    return file;
  }
  static fuse_file_info toWrite() {
    fuse_file_info info = {};
    info.flags = O_RDWR;
    return info;
  }

  Passthrough passthrough;
};

TEST_F(HandlesTest, PagesOfAnEarlierOpenAreStillGood) {
  const NodeId file = makeFile("name", "x");
  EXPECT_NE(flagsOfOpen(file, O_RDONLY) & FOPEN_KEEP_CACHE, 0U);
  EXPECT_NE(flagsOfOpen(file, O_RDWR) & FOPEN_KEEP_CACHE, 0U);
}

TEST_F(HandlesTest, TheKernelAsksWhenAFileIsClosedOnlyIfThereIsSomethingToWaitFor) {
  const NodeId file = makeFile("name", "x");
  EXPECT_NE(flagsOfOpen(file, O_RDONLY) & FOPEN_NOFLUSH, 0U);
  EXPECT_NE(flagsOfOpen(file, O_RDWR) & FOPEN_NOFLUSH, 0U);
  mountWaiting();
  EXPECT_NE(flagsOfOpen(file, O_RDONLY) & FOPEN_NOFLUSH, 0U);
  EXPECT_EQ(flagsOfOpen(file, O_RDWR) & FOPEN_NOFLUSH, 0U);
}

TEST_F(HandlesTest, AHandleIsTheFileUntilItIsDropped) {
  const NodeId node = makeFile("name", "x");
  Handles handles(writableParts(), passthrough);
  std::unique_ptr<OpenFile> file = openedIn(handles, node);
  OpenFile* const expected = file.get();
  const fuse_file_info info = handles.give(nullptr, toWrite(), std::move(file));
  EXPECT_EQ(&Handles::fileOf(info), expected);
  EXPECT_TRUE(engine->openFiles().isOpenForWriting(node));
  handles.drop(nullptr, info);
  EXPECT_FALSE(engine->openFiles().isOpen(node));
}

// The kernel releases nothing when it ends a connection.
TEST_F(HandlesTest, WhatIsOpenAtTheEndIsDroppedOnce) {
  const NodeId node = makeFile("name", "");
  Handles handles(writableParts(), passthrough);
  const fuse_file_info info = handles.give(nullptr, toWrite(), openedIn(handles, node));
  ASSERT_EQ(engine->files().find(node)->write("12345", 5, 0), 5);
  handles.dropAll();
  EXPECT_FALSE(engine->openFiles().isOpen(node));
  EXPECT_TRUE(eventually([&] { return row(node)->size == 5; }));
  // The answer to an open that nobody heard may come later.
  handles.drop(nullptr, info);
  EXPECT_FALSE(engine->openFiles().isOpen(node));
}

TEST_F(HandlesTest, WhoeverOnlyReadsIsNoWriter) {
  const NodeId node = makeFile("name", "x");
  Handles handles(writableParts(), passthrough);
  fuse_file_info info = {};
  info.flags = O_RDONLY;
  const std::unique_ptr<OpenFile> file = engine->contents().openAsIs(node);
  EXPECT_EQ(handles.prepareToWrite(info, *file), 0);
  EXPECT_FALSE(file->writes());
}

TEST_F(HandlesTest, ClosingWhatWasWrittenBringsItsRowUpToDateSoon) {
  const NodeId file = makeFile("name", "");
  const std::uint64_t handle = kernel().opened(file, O_WRONLY);
  kernel().write(file, "12345");
  kernel().release(file, handle);
  EXPECT_TRUE(eventually([&] { return row(file)->size == 5; }));
}

}  // namespace
}  // namespace tulo::test
