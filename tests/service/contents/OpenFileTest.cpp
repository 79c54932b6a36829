#include "service/contents/OpenFile.h"

#include <fcntl.h>
#include <unistd.h>
#include <filesystem>

#include "service/errors/ContentError.h"
#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

using OpenFileTest = ContentsFixture;

TEST_F(OpenFileTest, ContentsThatWereCutShortOnTheDiskAreAnErrorNotAShortFile) {
  const NodeId id = oneFile();
  readThrough(id);
  ASSERT_EQ(::truncate(engine->store().path(row(id)->content).c_str(), 2), 0);
  const OpenAnswer open = openFile(id);
  ASSERT_EQ(open.error, 0);
  EXPECT_THROW(open.file->descriptor(), ContentError);
}

TEST_F(OpenFileTest, KnowsItsEndWithoutOpeningTheContents) {
  const NodeId id = oneFile();
  readThrough(id);
  const OpenAnswer open = openFile(id);
  std::filesystem::remove(engine->store().path(row(id)->content));
  EXPECT_FALSE(open.file->endsBefore(4));
  EXPECT_TRUE(open.file->endsBefore(5));
}

TEST_F(OpenFileTest, IsAWriterFromTheMomentItSaysSo) {
  const NodeId id = oneFile("");
  {
    const OpenAnswer open = openFile(id);
    EXPECT_FALSE(open.file->writes());
    EXPECT_FALSE(engine->openFiles().isOpenForWriting(id));
    open.file->setWrites();
    open.file->setWrites();
    EXPECT_TRUE(open.file->writes());
    EXPECT_TRUE(engine->openFiles().isOpenForWriting(id));
  }
  EXPECT_FALSE(engine->openFiles().isOpenForWriting(id));
}

TEST_F(OpenFileTest, FollowsWhatIsChangedHere) {
  const NodeId id = oneFile();
  readThrough(id);
  const OpenAnswer reader = openFile(id);
  EXPECT_EQ(contentsOf(*reader.file), "hello");
  const auto writer = engine->files().open(id).file;
  ASSERT_NE(writer, nullptr);
  ASSERT_EQ(writer->write("J", 1, 0), 1);
  EXPECT_EQ(contentsOf(*reader.file), "Jello");
  EXPECT_EQ(reader.file->content(), row(id)->content);
  engine->files().released(id);
}

TEST_F(OpenFileTest, KeepsItsVersionWhenTheHostHasAnother) {
  const NodeId id = oneFile();
  readThrough(id);
  const OpenAnswer open = openFile(id);
  extension->edit("i:1", "another");
  commit();
  refresh();
  EXPECT_NE(idOf("i:1"), id);
  EXPECT_EQ(contentsOf(*open.file), "hello");
}

}  // namespace
}  // namespace tulo::test
