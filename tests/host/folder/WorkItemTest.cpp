#include "host/folder/WorkItem.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "host/account/Claims.h"
#include "host/base/Files.h"
#include "host/base/HostError.h"
#include "tests/support/TemporaryDirectory.h"

namespace tulo::host {
namespace {

namespace fs = std::filesystem;

class WorkItemTest : public testing::Test {
 protected:
  FileDescriptor work() const { return openFolderPath(directory_.path()); }
  StagedCopy staged(const std::string& name) {
    return StagedCopy(openFolderPath(directory_.path()), *claims_.claim(name), log_);
  }

  const test::TemporaryDirectory directory_;
  const HostLog log_{false};
  Claims claims_;
};

TEST_F(WorkItemTest, TakesTheCopyWithoutItsSpecialRights) {
  test::writeFile(directory_.file("copy"), "hello");
  ASSERT_EQ(::chmod(directory_.file("copy").c_str(), 04455), 0);
  const StagedCopy copy = staged("copy");
  WorkItem item(work(), "item", log_);
  item.fill(&copy);
  EXPECT_FALSE(fs::exists(directory_.file("copy")));
  EXPECT_EQ(test::readFile(directory_.file("item")), "hello");
  EXPECT_EQ(item.stat().mode, 0655U);
}

TEST_F(WorkItemTest, WithoutACopyItIsAnEmptyFolder) {
  WorkItem item(work(), "item", log_);
  item.fill(nullptr);
  EXPECT_TRUE(item.stat().isFolder);
  EXPECT_TRUE(fs::is_empty(directory_.file("item")));
}

TEST_F(WorkItemTest, WhatIsStillThereAtItsEndGoes) {
  {
    WorkItem item(work(), "item", log_);
    item.fill(nullptr);
    fs::create_directory(directory_.file("item/sub"));
  }
  EXPECT_FALSE(fs::exists(directory_.file("item")));
}

TEST_F(WorkItemTest, WithNothingInItThereIsNothingToSay) {
  const WorkItem item(work(), "item", log_);
  EXPECT_THROW(item.stat(), OperationError);
}

}  // namespace
}  // namespace tulo::host
