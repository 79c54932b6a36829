#include "service/ThumbnailPage.h"

#include "tests/service/support/WritingFixture.h"

namespace tulo::test {
namespace {

class ThumbnailPageTest : public WritingFixture {
 protected:
  std::vector<ThumbnailFile> next(NodeId folder) {
    return engine->replica().read([&](ReplicaReader& reader) {
      return thumbnailPage(reader, "/mnt/account", folder, after);
    });
  }

  NodeId after = kNoNode;
};

TEST_F(ThumbnailPageTest, NamesTheHostsFilesByTheirPathInTheMount) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.png", "12345", "f:1");
  list();
  EXPECT_EQ(refresh(idOf("f:1")), 0);
  const auto page = next(idOf("f:1"));
  ASSERT_EQ(page.size(), 1U);
  EXPECT_EQ(page[0].identifier, "i:1");
  EXPECT_EQ(page[0].original.path, "/mnt/account/Docs/a.png");
  EXPECT_EQ(page[0].original.size, 5);
  EXPECT_EQ(page[0].original.modified, WallSeconds(seconds(1'700'000'000)));
  EXPECT_TRUE(next(idOf("f:1")).empty());
}

TEST_F(ThumbnailPageTest, FoldersAndWhatTheHostDoesNotHaveAreLeftOut) {
  extension->folder("f:1", "Docs");
  extension->file("i:1", "a.png", "x");
  list();
  makeFile("new.png", "x");
  const auto page = next(kRootNode);
  ASSERT_EQ(page.size(), 1U);
  EXPECT_EQ(page[0].identifier, "i:1");
}

TEST_F(ThumbnailPageTest, ALargeFolderComesInPages) {
  for (int i = 0; i < 300; ++i)
    extension->file("i:" + std::to_string(i), "file " + std::to_string(i), "x");
  list();
  EXPECT_EQ(next(kRootNode).size(), 256U);
  EXPECT_EQ(next(kRootNode).size(), 44U);
  EXPECT_TRUE(next(kRootNode).empty());
}

}  // namespace
}  // namespace tulo::test
