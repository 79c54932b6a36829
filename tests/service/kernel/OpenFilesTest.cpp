#include "service/kernel/OpenFiles.h"

#include <gtest/gtest.h>

#include <vector>

namespace tulo::test {
namespace {

constexpr NodeId kFile{20};
constexpr ContentId kOld{5};
constexpr ContentId kNew{6};

TEST(OpenFilesTest, AFileIsOpenUntilItsLastHandleIsClosed) {
  OpenFiles files;
  files.opened(kFile, kOld);
  files.opened(kFile, kOld);
  EXPECT_EQ(files.count(), 2U);
  files.closed(kFile, kOld);
  EXPECT_TRUE(files.isOpen(kFile));
  EXPECT_TRUE(files.isContentOpen(kOld));
  files.closed(kFile, kOld);
  EXPECT_FALSE(files.isOpen(kFile));
  EXPECT_FALSE(files.isContentOpen(kOld));
  EXPECT_EQ(files.count(), 0U);
}

TEST(OpenFilesTest, AHandleWithoutContentsKeepsNoneOpen) {
  OpenFiles files;
  files.opened(kFile, kNoContent);
  EXPECT_TRUE(files.isOpen(kFile));
  EXPECT_FALSE(files.isContentOpen(kNoContent));
}

TEST(OpenFilesTest, AHandleThatReadsFromOtherContentsLetsGoOfTheFormer) {
  OpenFiles files;
  files.opened(kFile, kOld);
  files.exchanged(kOld, kNew);
  EXPECT_FALSE(files.isContentOpen(kOld));
  EXPECT_TRUE(files.isContentOpen(kNew));
  files.closed(kFile, kNew);
  EXPECT_FALSE(files.isContentOpen(kNew));
}

TEST(OpenFilesTest, KnowsWhoMayWrite) {
  OpenFiles files;
  files.opened(kFile, kOld);
  EXPECT_FALSE(files.isOpenForWriting(kFile));
  files.openedForWriting(kFile);
  files.openedForWriting(kFile);
  files.closedForWriting(kFile);
  EXPECT_TRUE(files.isOpenForWriting(kFile));
  files.closedForWriting(kFile);
  EXPECT_FALSE(files.isOpenForWriting(kFile));
}

TEST(OpenFilesTest, CountsChangesOfContentsFromTheFirstHandleOn) {
  OpenFiles files;
  files.contentsChanged(kFile);
  EXPECT_EQ(files.contentsChanges(kFile), 0U);
  files.opened(kFile, kOld);
  files.contentsChanged(kFile);
  EXPECT_EQ(files.contentsChanges(kFile), 1U);
  files.closed(kFile, kOld);
  EXPECT_EQ(files.contentsChanges(kFile), 0U);
}

TEST(OpenFilesTest, ANumberThatIsLeftBehindKeepsItsAttributesAsLongAsItIsOpen) {
  OpenFiles files;
  Entry entry;
  entry.id = kFile;
  entry.size = 12;
  files.leaveBehind(entry);
  EXPECT_FALSE(files.leftBehind(kFile));
  files.opened(kFile, kOld);
  files.leaveBehind(entry);
  ASSERT_TRUE(files.leftBehind(kFile));
  EXPECT_EQ(files.leftBehind(kFile)->size, 12);
  files.closed(kFile, kOld);
  EXPECT_FALSE(files.leftBehind(kFile));
}

TEST(OpenFilesTest, TellsAllThatMayBeWritten) {
  OpenFiles files;
  files.opened(kFile, kOld);
  EXPECT_TRUE(files.allOpenForWriting().empty());
  files.openedForWriting(kFile);
  EXPECT_EQ(files.allOpenForWriting(), std::vector<NodeId>{kFile});
  files.closedForWriting(kFile);
  EXPECT_TRUE(files.allOpenForWriting().empty());
}

}  // namespace
}  // namespace tulo::test
