#include "service/contents/Deliveries.h"

#include <algorithm>
#include <filesystem>

#include "service/errors/ContentError.h"
#include "tests/service/support/ContentsFixture.h"

namespace tulo::test {
namespace {

class DeliveriesTest : public ContentsFixture {
 protected:
  // What the host hands over for the file, in the place for that.
  Download delivered(NodeId id, const std::string& bytes) {
    Download download(id);
    download.version = row(id)->contentVersion;
    download.size = row(id)->size;
    std::filesystem::create_directory(directory.file("fp-download"));
    download.path = directory.file("fp-download/delivered");
    writeFile(download.path, bytes);
    return download;
  }

  std::ptrdiff_t filesOfContents() {
    using Walk = std::filesystem::recursive_directory_iterator;
    return std::count_if(Walk(options.stateDirectory + "/contents"), Walk(),
                         [](const auto& entry) { return entry.is_regular_file(); });
  }

  Deliveries deliveries() { return {engine->replica(), engine->store()}; }
};

TEST_F(DeliveriesTest, WhatFitsBecomesTheNodesContents) {
  const NodeId id = oneFile();
  Download download = delivered(id, "hello");
  const std::string source = download.path;
  EXPECT_TRUE(deliveries().adopt(download));
  EXPECT_EQ(download.path, "");
  EXPECT_FALSE(std::filesystem::exists(source));
  EXPECT_EQ(row(id)->state, ContentState::downloaded);
  EXPECT_EQ(readFile(engine->store().path(row(id)->content)), "hello");
  EXPECT_EQ(engine->store().room().used(), row(id)->blocks * 512);
}

TEST_F(DeliveriesTest, OfANodeThatMovedOnItIsALeftOver) {
  const NodeId id = oneFile();
  Download download = delivered(id, "hello");
  download.version = "another";
  EXPECT_FALSE(deliveries().adopt(download));
  EXPECT_EQ(row(id)->state, ContentState::dataless);
  EXPECT_EQ(filesOfContents(), 1);
  EXPECT_TRUE(engine->contents().purgeStep());
  EXPECT_EQ(filesOfContents(), 0);
}

TEST_F(DeliveriesTest, WhatCannotBeTakenStaysUntilItIsThrownAway) {
  const NodeId id = oneFile();
  Download download = delivered(id, "hell");
  EXPECT_THROW(deliveries().adopt(download), ContentError);
  EXPECT_TRUE(std::filesystem::exists(download.path));
  const std::string source = download.path;
  deliveries().discard(download);
  EXPECT_FALSE(std::filesystem::exists(source));
  EXPECT_EQ(download.path, "");
  deliveries().discard(download);
  EXPECT_EQ(row(id)->state, ContentState::dataless);
}

}  // namespace
}  // namespace tulo::test
