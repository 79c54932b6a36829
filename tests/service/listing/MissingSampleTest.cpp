#include "service/listing/MissingSample.h"

#include <string>
#include <vector>

#include "tests/service/support/EngineFixture.h"

namespace tulo::test {
namespace {

class MissingSampleTest : public EngineFixture {
 protected:
  MissingSampleTest() {
    for (const char* number : {"1", "2"}) {
      extension->folder(std::string("f:") + number, std::string("folder ") + number);
      extension->file(std::string("i:") + number, std::string("file ") + number, "");
    }
    refresh();
  }

  std::vector<std::string> sample(const std::vector<std::string>& listed,
                                  const std::unordered_set<std::string>& newer = {}) {
    Listing listing;
    for (const std::string& identifier : listed)
      listing.items.emplace_back().identifier = identifier;
    return sampleOfMissing(engine->replica(), kRootNode, listing, newer);
  }
};

TEST_F(MissingSampleTest, IsOneFolderAndOneFileOfThoseThatAreNotListed) {
  EXPECT_EQ(sample({"f:1", "i:2"}), (std::vector<std::string>{"f:2", "i:1"}));
  EXPECT_EQ(sample({}).size(), 2U);
  EXPECT_EQ(sample({"f:1", "f:2", "i:2"}), std::vector<std::string>{"i:1"});
}

TEST_F(MissingSampleTest, IsEmptyOfAWholeListing) {
  EXPECT_TRUE(sample({"f:1", "f:2", "i:1", "i:2", "i:3"}).empty());
}

TEST_F(MissingSampleTest, LeavesOutWhatIsNewerThanTheListing) {
  EXPECT_EQ(sample({"f:1", "i:2"}, {"f:2"}), std::vector<std::string>{"i:1"});
}

}  // namespace
}  // namespace tulo::test
