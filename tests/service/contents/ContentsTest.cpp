#include "service/contents/Contents.h"

#include <cerrno>
#include <filesystem>

#include "service/errors/ContentError.h"
#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

using ContentsTest = ContentsFixture;

TEST_F(ContentsTest, ContentsThatCannotBeReadAreFetchedByTheNextOpen) {
  const NodeId id = oneFile();
  EXPECT_EQ(readThrough(id), "hello");
  std::filesystem::remove(engine->store().path(row(id)->content));
  const OpenAnswer broken = openFile(id);
  ASSERT_EQ(broken.error, 0);
  try {
    broken.file->descriptor();
    FAIL() << "the file is not there";
  } catch (const ContentError& error) {
    engine->contents().cannotRead(*broken.file, error);
  }
  EXPECT_EQ(row(id)->state, ContentState::dataless);
  EXPECT_EQ(readThrough(id), "hello");
  EXPECT_EQ(extension->fetchCount(), 2U);
}

TEST_F(ContentsTest, AShortageOfDescriptorsIsNoReasonToFetchAgain) {
  const NodeId id = oneFile();
  EXPECT_EQ(readThrough(id), "hello");
  const OpenAnswer answer = openFile(id);
  engine->contents().cannotRead(*answer.file, ContentError(EMFILE, "too many open files"));
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
}

}  // namespace
}  // namespace tulo::test
